// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "recording/mcap_writer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

#include "recording/mcap_bytes.h"
#include "recording/mcap_crc.h"

namespace mcap
{
namespace
{

std::string_view compressionName(bool compressed)
{
    return compressed ? "zstd" : "";
}

// Whether fewer bytes would fit.
bool isFull(int error)
{
    return error == ENOSPC || error == EDQUOT || error == EFBIG;
}

[[noreturn]] void failWriting(int error)
{
    throw Failure(kFailed, std::string("the recording cannot be written: ") + strerror(error));
}

} // namespace

Writer::Writer(int descriptor, const Options& options)
    : m_descriptor(descriptor), m_options(options), m_packing(options.repeats)
{
    if (options.compression == Compression::zstd) {
        if (const char* missing = ChunkPacking::missing())
            throw Failure(kUsage, missing);
    }
    add(m_record, std::span(kMagic));
    addRecord(m_record, Opcode::header, [this] {
        add(m_record, std::string_view("ros2"));
        add(m_record, std::string_view("VQD_API"));
    });
    write(m_record);
}

uint16_t Writer::addChannel(const std::string& topic, const msg::MessageType& type)
{
    const auto known = std::ranges::find(m_schemas, &type);
    const auto schema = static_cast<uint16_t>(known - m_schemas.begin() + 1);
    if (known == m_schemas.end()) {
        m_schemas.push_back(&type);
        addSchema(m_open, schema);
    }
    const auto channel = static_cast<uint16_t>(m_channels.size());
    m_channels.push_back({topic, schema});
    addChannel(m_open, channel);
    return channel;
}

void Writer::addSchema(Bytes& to, uint16_t schema) const
{
    const msg::MessageType& type = *m_schemas[schema - 1u];
    addRecord(to, Opcode::schema, [&] {
        add(to, schema);
        add(to, std::string_view(type.name));
        add(to, std::string_view("ros2msg"));
        add(to, std::string_view(type.schema));
    });
}

void Writer::addChannel(Bytes& to, uint16_t channel) const
{
    addRecord(to, Opcode::channel, [&] {
        add(to, channel);
        add(to, m_channels[channel].schema);
        add(to, std::string_view(m_channels[channel].topic));
        add(to, std::string_view("cdr"));
        add(to, Names());
    });
}

void Writer::message(uint16_t channel, uint32_t sequence, uint64_t logTime, uint64_t publishTime,
                     std::span<const uint8_t> cdr)
{
    if (m_openIndexes.empty())
        m_openFirst = logTime;
    m_openLast = logTime;
    m_openIndexes[channel].push_back({logTime, m_open.size()});
    addRecord(m_open, Opcode::message, [&] {
        add(m_open, channel);
        add(m_open, sequence);
        add(m_open, logTime);
        add(m_open, publishTime);
        add(m_open, cdr);
    });
    if (m_open.size() >= m_options.chunkBytes || logTime - m_openFirst >= m_options.chunkTime)
        endChunk();
}

// The chunk and its indexes are written at once, so that a cut leaves both or neither whole.
void Writer::endChunk()
{
    if (m_openIndexes.empty())
        return;
    Chunk chunk{};
    const std::span<const uint8_t> records =
        m_options.compression == Compression::zstd ? m_packing.pack(m_open) : std::span<const uint8_t>(m_open);
    chunk.compressed = records.data() != m_open.data();
    chunk.packed = records.size();
    chunk.unpacked = m_open.size();
    chunk.crcBefore = m_crc;
    const uint32_t crc = crcOf(m_open);
    m_record.clear();
    addRecord(m_record, Opcode::chunk, [&] {
        add(m_record, m_openFirst);
        add(m_record, m_openLast);
        add(m_record, chunk.unpacked);
        add(m_record, crc);
        add(m_record, compressionName(chunk.compressed));
        add(m_record, chunk.packed);
        add(m_record, records);
    });
    chunk.place = {m_offset, m_record.size(), m_openFirst, m_openLast};
    const size_t end = m_record.size(), begin = end - records.size();
    for (const auto& [channel, messages] : m_openIndexes) {
        chunk.indexes[channel] = m_offset + m_record.size();
        chunk.counts[channel] = messages.size();
        addRecord(m_record, Opcode::messageIndex, [&, &number = channel, &list = messages] {
            add(m_record, number);
            addCounted<uint32_t>(m_record, [&] {
                for (const Indexed& message : list) {
                    add(m_record, message.logTime);
                    add(m_record, message.offset);
                }
            });
        });
    }
    chunk.indexLength = m_record.size() - chunk.place.length;
    put(m_record);
    const std::span written(m_record);
    m_crc = chunk.compressed
                ? crcOf(written, m_crc)
                : crcOf(written.subspan(end), crcOfBoth(crcOf(written.first(begin), m_crc), crc, end - begin));
    m_open.clear();
    m_openIndexes.clear();
    m_chunks.push_back(std::move(chunk));
}

void Writer::attachment(const std::string& name, const std::string& mediaType, uint64_t logTime,
                        std::span<const uint8_t> bytes)
{
    m_record.clear();
    addRecord(m_record, Opcode::attachment, [&] {
        add(m_record, logTime);
        add(m_record, logTime); // when it was made
        add(m_record, std::string_view(name));
        add(m_record, std::string_view(mediaType));
        add(m_record, static_cast<uint64_t>(bytes.size()));
        add(m_record, bytes);
        add(m_record, crcOf(std::span(m_record).subspan(kRecordHead)));
    });
    const AttachmentPlace place{m_offset, m_record.size(), logTime, bytes.size(), name, mediaType};
    write(m_record);
    m_attachments.push_back(place);
}

void Writer::metadata(const std::string& name, const Names& values)
{
    m_record.clear();
    addRecord(m_record, Opcode::metadata, [&] {
        add(m_record, std::string_view(name));
        add(m_record, values);
    });
    const MetadataPlace place{m_offset, m_record.size(), name};
    write(m_record);
    m_metadata.push_back(place);
}

void Writer::finish()
{
    try {
        if (m_failure == 0)
            endChunk();
    } catch (const Failure&) {
        // counted below
    }
    for (const auto& [channel, messages] : m_openIndexes)
        m_lost += messages.size();
    for (;;) {
        try {
            return writeSummary();
        } catch (const Failure&) {
            if (m_chunks.empty() || !isFull(m_failure))
                throw;
            dropLastChunk();
        }
    }
}

void Writer::dropLastChunk()
{
    const Chunk& last = m_chunks.back();
    m_lost += last.messages();
    m_offset = last.place.offset;
    m_crc = last.crcBefore;
    const auto isBehind = [this](const auto& place) { return place.offset >= m_offset; };
    std::erase_if(m_attachments, isBehind);
    std::erase_if(m_metadata, isBehind);
    m_chunks.pop_back();
    if (ftruncate(m_descriptor, static_cast<off_t>(m_offset)) != 0 ||
        lseek(m_descriptor, static_cast<off_t>(m_offset), SEEK_SET) < 0)
        failWriting(errno);
}

uint64_t Writer::Chunk::messages() const
{
    uint64_t sum = 0;
    for (const auto& [channel, count] : counts)
        sum += count;
    return sum;
}

uint64_t Writer::messages(uint16_t channel) const
{
    uint64_t sum = 0;
    for (const Chunk& chunk : m_chunks)
        if (const auto count = chunk.counts.find(channel); count != chunk.counts.end())
            sum += count->second;
    return sum;
}

void Writer::addStatistics(Bytes& to) const
{
    std::map<uint16_t, uint64_t> counts;
    uint64_t messages = 0;
    for (const Chunk& chunk : m_chunks) {
        messages += chunk.messages();
        for (const auto& [channel, count] : chunk.counts)
            counts[channel] += count;
    }
    addRecord(to, Opcode::statistics, [&] {
        add(to, messages);
        add(to, static_cast<uint16_t>(m_schemas.size()));
        add(to, static_cast<uint32_t>(m_channels.size()));
        add(to, static_cast<uint32_t>(m_attachments.size()));
        add(to, static_cast<uint32_t>(m_metadata.size()));
        add(to, static_cast<uint32_t>(m_chunks.size()));
        add(to, m_chunks.empty() ? uint64_t{} : m_chunks.front().place.firstTime);
        add(to, m_chunks.empty() ? uint64_t{} : m_chunks.back().place.lastTime);
        addCounted<uint32_t>(to, [&] {
            for (const auto& [channel, count] : counts) {
                add(to, channel);
                add(to, count);
            }
        });
    });
}

void Writer::addChunkIndex(Bytes& to, const Chunk& chunk) const
{
    addRecord(to, Opcode::chunkIndex, [&] {
        add(to, chunk.place.firstTime);
        add(to, chunk.place.lastTime);
        add(to, chunk.place.offset);
        add(to, chunk.place.length);
        addCounted<uint32_t>(to, [&] {
            for (const auto& [channel, offset] : chunk.indexes) {
                add(to, channel);
                add(to, offset);
            }
        });
        add(to, chunk.indexLength);
        add(to, compressionName(chunk.compressed));
        add(to, chunk.packed);
        add(to, chunk.unpacked);
    });
}

// A record for the end of the data, then groups of records, each of one kind, then where each group is, then the
// footer. All of it is written at once.
void Writer::writeSummary()
{
    m_record.clear();
    addRecord(m_record, Opcode::dataEnd, [this] { add(m_record, m_crc); });
    const size_t start = m_record.size();
    struct Group {
        Opcode opcode;
        size_t begin, end;
    };
    std::vector<Group> groups;
    const auto group = [&](Opcode opcode, const auto& fill) {
        const size_t begin = m_record.size();
        fill();
        if (m_record.size() > begin)
            groups.push_back({opcode, begin, m_record.size()});
    };
    group(Opcode::schema, [this] {
        for (size_t number = 1; number <= m_schemas.size(); ++number)
            addSchema(m_record, static_cast<uint16_t>(number));
    });
    group(Opcode::channel, [this] {
        for (size_t number = 0; number < m_channels.size(); ++number)
            addChannel(m_record, static_cast<uint16_t>(number));
    });
    group(Opcode::statistics, [this] { addStatistics(m_record); });
    group(Opcode::chunkIndex, [this] {
        for (const Chunk& chunk : m_chunks)
            addChunkIndex(m_record, chunk);
    });
    group(Opcode::attachmentIndex, [this] {
        for (const AttachmentPlace& place : m_attachments)
            addRecord(m_record, Opcode::attachmentIndex, [&] {
                for (const uint64_t number : {place.offset, place.length, place.logTime, place.logTime, place.bytes})
                    add(m_record, number);
                add(m_record, std::string_view(place.name));
                add(m_record, std::string_view(place.mediaType));
            });
    });
    group(Opcode::metadataIndex, [this] {
        for (const MetadataPlace& place : m_metadata)
            addRecord(m_record, Opcode::metadataIndex, [&] {
                add(m_record, place.offset);
                add(m_record, place.length);
                add(m_record, std::string_view(place.name));
            });
    });
    const size_t offsets = m_record.size();
    for (const Group& one : groups)
        addRecord(m_record, Opcode::summaryOffset, [&] {
            m_record.push_back(static_cast<uint8_t>(one.opcode));
            add(m_record, m_offset + one.begin);
            add(m_record, static_cast<uint64_t>(one.end - one.begin));
        });
    addRecord(m_record, Opcode::footer, [&] {
        add(m_record, m_offset + start);
        add(m_record, m_offset + offsets);
        add(m_record, uint32_t{}); // the CRC, which covers the footer up to here
    });
    const size_t covered = m_record.size() - sizeof(uint32_t);
    const uint32_t crc = crcOf(std::span(m_record).first(covered).subspan(start));
    std::memcpy(m_record.data() + covered, &crc, sizeof crc);
    add(m_record, std::span(kMagic));
    write(m_record);
}

void Writer::write(std::span<const uint8_t> record)
{
    put(record);
    m_crc = crcOf(record, m_crc);
}

// What was begun is taken back when it does not fit.
void Writer::put(std::span<const uint8_t> record)
{
    for (size_t done = 0; done < record.size();) {
        const ssize_t count = ::write(m_descriptor, record.data() + done, record.size() - done);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0) {
            const int error = count < 0 ? errno : ENOSPC;
            m_failure = error;
            if (ftruncate(m_descriptor, static_cast<off_t>(m_offset)) == 0)
                lseek(m_descriptor, static_cast<off_t>(m_offset), SEEK_SET);
            failWriting(error);
        }
        done += static_cast<size_t>(count);
    }
    m_offset += record.size();
}

} // namespace mcap
