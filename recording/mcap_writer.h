// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Writes an MCAP file: messages in chunks, each with an index, and a summary at the end. Whatever was written before a
// crash can be read without the summary, up to the chunk that was open.
#pragma once

#include <map>
#include <span>
#include <vector>

#include "host/bytes.h"
#include "recording/mcap.h"
#include "recording/mcap_packing.h"
#include "recording/message_type.h"

namespace mcap
{

class Writer
{
public:
    struct Options {
        Compression compression = Compression::zstd;
        size_t chunkBytes = 1u << 20;       // a chunk ends with the message that reaches this
        uint64_t chunkTime = 1'000'000'000; // or that is so many ns later than its first one
        bool repeats = false;               // as in ChunkPacking
    };

    // Of an empty file, which stays the caller's. Fails when it cannot be written, or compression is missing.
    Writer(int descriptor, const Options& options);

    // A channel of CDR messages, with its schema.
    uint16_t addChannel(const std::string& topic, const msg::MessageType& type);

    // Log times must not go back. All of these fail when the file cannot be written. It then ends with the last whole
    // record, and nothing but finish() may follow.
    void message(uint16_t channel, uint32_t sequence, uint64_t logTime, uint64_t publishTime,
                 std::span<const uint8_t> cdr);
    void attachment(const std::string& name, const std::string& mediaType, uint64_t logTime,
                    std::span<const uint8_t> bytes);
    void metadata(const std::string& name, const Names& values);
    void endChunk(); // if one is open

    // Ends the file with its summary. On a full disk the last chunks give way to it. Fails when even that does not
    // help; on a broken disk, which has room, the chunks stay.
    void finish();

    uint64_t bytes() const { return m_offset; }      // of the file by now, without the open chunk
    uint64_t messages(uint16_t channel) const;       // of the file by now, too
    uint64_t lostMessages() const { return m_lost; } // after finish(): for which the disk had no room

private:
    struct OwnChannel {
        std::string topic;
        uint16_t schema;
    };
    struct Indexed {
        uint64_t logTime, offset;
    };
    struct Chunk {
        ChunkPlace place;
        uint64_t indexLength;      // of the message indexes behind it
        uint64_t packed, unpacked; // bytes of its records
        bool compressed;
        uint32_t crcBefore;                   // of the file up to it
        std::map<uint16_t, uint64_t> indexes; // where that of a channel is
        std::map<uint16_t, uint64_t> counts;  // messages of a channel
        uint64_t messages() const;
    };

    void addSchema(Bytes& to, uint16_t schema) const;
    void addChannel(Bytes& to, uint16_t channel) const;
    void addStatistics(Bytes& to) const;
    void addChunkIndex(Bytes& to, const Chunk& chunk) const;
    void write(std::span<const uint8_t> record);
    void put(std::span<const uint8_t> record); // without m_crc
    void writeSummary();
    void dropLastChunk();

    const int m_descriptor;
    const Options m_options;
    ChunkPacking m_packing;
    uint64_t m_offset = 0;
    uint32_t m_crc = 0; // of what is written
    uint64_t m_lost = 0;
    int m_failure = 0; // of the latest write that failed, as errno

    std::vector<const msg::MessageType*> m_schemas; // the first one has number 1
    std::vector<OwnChannel> m_channels;             // the first one has number 0

    Bytes m_open; // records of the open chunk
    uint64_t m_openFirst = 0, m_openLast = 0;
    std::map<uint16_t, std::vector<Indexed>> m_openIndexes;

    std::vector<Chunk> m_chunks;
    std::vector<AttachmentPlace> m_attachments;
    std::vector<MetadataPlace> m_metadata;
    Bytes m_record; // the record that is being made
};

} // namespace mcap
