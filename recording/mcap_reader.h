// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Reads an MCAP file, whole or cut. The file is not trusted: what it claims is bounded by its size and by
// kMostUnpacked.
#pragma once

#include <map>
#include <optional>
#include <span>
#include <vector>

#include "host/bytes.h"
#include "recording/mcap_file.h"
#include "recording/mcap_packing.h"

namespace mcap
{

struct Message {
    uint16_t channel;
    uint32_t sequence;
    uint64_t logTime, publishTime; // ns since 1970
    std::span<const uint8_t> data;
};

inline constexpr size_t kMostFaults = 20; // that are told one by one

// Of the content of its record. Fails when that is too short.
Message messageFrom(std::span<const uint8_t> content);

class Reader
{
public:
    // Fails when the file cannot be read or is no MCAP file. A cut file is read as far as it is whole.
    explicit Reader(const std::filesystem::path& path);

    // Why the file is not whole, as a sentence; empty when it has its summary. The chunks that are whole can be read
    // all the same.
    const std::string& damage() const { return m_damage; }

    // What cannot be read in a file without a summary: the first kMostFaults sentences, and how many there are.
    const std::vector<std::string>& faults() const { return m_faults; }
    uint64_t faultCount() const { return m_faultCount; }

    // By their numbers in the messages. In a cut file also those that only the chunks name.
    const std::map<uint16_t, Channel>& channels() const { return m_channels; }
    const std::vector<ChunkPlace>& chunks() const { return m_chunks; }
    const std::vector<AttachmentPlace>& attachments() const { return m_attachments; }
    const std::vector<MetadataPlace>& metadata() const { return m_metadata; }

    // Messages of each channel that has any; nothing when the file does not say.
    const std::optional<std::map<uint16_t, uint64_t>>& counts() const { return m_counts; }

    uint64_t fileBytes() const { return m_file.size(); }
    const File& file() const { return m_file; }

    // Fails when its CRC is wrong.
    Bytes read(const AttachmentPlace& place) const;
    Names read(const MetadataPlace& place) const;

    // The records of a chunk, unpacked. Fails when its CRC is wrong, or it claims more than kMostUnpacked.
    void read(const ChunkPlace& place, Bytes& records);

private:
    bool readSummary();
    void scan();
    void take(const Record& record);
    void takeDefinition(Opcode opcode, std::span<const uint8_t> content);
    void takeChunk(const Record& record);

    const File m_file;
    std::string m_damage;
    std::vector<std::string> m_faults;
    uint64_t m_faultCount = 0;
    std::map<uint16_t, std::shared_ptr<const Schema>> m_schemas;
    std::map<uint16_t, Channel> m_channels;
    std::vector<ChunkPlace> m_chunks;
    std::vector<AttachmentPlace> m_attachments;
    std::vector<MetadataPlace> m_metadata;
    std::optional<std::map<uint16_t, uint64_t>> m_counts;
    ChunkPacking m_packing;
};

// Goes through the messages in the order in which they were written, which for our own files is that of their times.
class Cursor
{
public:
    // From the first message at or behind a time.
    explicit Cursor(Reader& reader, uint64_t from = 0);

    // The next message, valid until the next call; nothing at the end. Fails at a damaged chunk; the call after that
    // goes on behind it.
    std::optional<Message> next();

private:
    Reader& m_reader;
    const uint64_t m_from;
    size_t m_chunk = 0; // the next one
    Bytes m_records;
    size_t m_offset = 0; // in the present one
};

} // namespace mcap
