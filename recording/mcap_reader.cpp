// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The file is read by calls, not mapped: a file that another program cuts meanwhile then ends early, and no more.
#include "recording/mcap_reader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include "recording/mcap_bytes.h"

namespace mcap
{
namespace
{

constexpr uint64_t kMostBeforeData = 4096; // of chunks and attachments

uint32_t crcOf(std::span<const uint8_t> bytes)
{
    return static_cast<uint32_t>(crc32_z(0, bytes.data(), bytes.size()));
}

int opened(const std::filesystem::path& path)
{
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (descriptor < 0)
        throw Failure(kFailed, path.string() + ": " + strerror(errno));
    struct stat file {
    };
    if (fstat(descriptor, &file) == 0 && S_ISREG(file.st_mode))
        return descriptor;
    close(descriptor);
    throw Failure(kUsage, path.string() + " is no file");
}

// A record of a chunk, whose length is bounded by what is left.
struct Inner {
    Opcode opcode;
    std::span<const uint8_t> content;
};

Inner innerRecord(Fields& records)
{
    const auto opcode = static_cast<Opcode>(records.number<uint8_t>());
    return {opcode, records.counted<uint64_t>()};
}

} // namespace

Reader::Reader(const std::filesystem::path& path) : m_descriptor(opened(path))
{
    try {
        m_size = static_cast<uint64_t>(lseek(m_descriptor, 0, SEEK_END));
        const auto magic = at(0, std::min<uint64_t>(m_size, sizeof kMagic));
        if (!std::ranges::equal(magic, kMagic))
            throw Failure(kUsage, path.string() + " is no recording: it does not begin as an MCAP file");
        if (!readSummary())
            scan();
    } catch (...) {
        close(m_descriptor);
        throw;
    }
}

Reader::~Reader()
{
    close(m_descriptor);
}

// Fails when the file ends before.
Bytes Reader::at(uint64_t offset, uint64_t size) const
{
    if (offset > m_size || size > m_size - offset)
        throw Failure(kUsage, "the recording ends too early");
    Bytes bytes(size);
    for (size_t done = 0; done < size;) {
        const ssize_t count = pread(m_descriptor, bytes.data() + done, size - done, static_cast<off_t>(offset + done));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            throw Failure(kFailed, count < 0 ? std::string("the recording cannot be read: ") + strerror(errno)
                                             : "the recording was cut while it was read");
        done += static_cast<size_t>(count);
    }
    return bytes;
}

// The record at a place, if it ends before `end`. Of chunks and attachments only what comes before their data is read.
std::optional<Reader::Record> Reader::record(uint64_t offset, uint64_t end) const
{
    if (offset > end || end - offset < kRecordHead)
        return {};
    const Bytes head = at(offset, kRecordHead);
    Fields fields(head);
    const auto opcode = static_cast<Opcode>(fields.number<uint8_t>());
    const auto length = fields.number<uint64_t>();
    if (length > end - offset - kRecordHead)
        return {};
    Record record{opcode, offset, kRecordHead + length, {}};
    if (opcode == Opcode::chunk || opcode == Opcode::attachment)
        record.content = at(offset + kRecordHead, std::min(length, kMostBeforeData));
    else
        record.content = at(offset + kRecordHead, length);
    return record;
}

// Returns false when there is none, or it is damaged. Nothing of it has then been taken.
bool Reader::readSummary()
{
    if (m_size < sizeof kMagic + kFooterBytes + sizeof kMagic)
        return false;
    const uint64_t footer = m_size - sizeof kMagic - kFooterBytes;
    const Bytes end = at(footer, kFooterBytes + sizeof kMagic);
    Fields fields(end);
    const bool isFooter = fields.number<uint8_t>() == static_cast<uint8_t>(Opcode::footer) &&
                          fields.number<uint64_t>() == kFooterBytes - kRecordHead;
    const auto start = fields.number<uint64_t>();
    fields.number<uint64_t>(); // where the summary's groups are told
    const auto crc = fields.number<uint32_t>();
    if (!isFooter || !std::ranges::equal(fields.rest(), kMagic) || start < sizeof kMagic || start > footer)
        return false;
    if (crc != 0 && crcOf(at(start, m_size - sizeof kMagic - sizeof crc - start)) != crc)
        return false;
    try {
        for (uint64_t offset = start; offset < footer;) {
            const auto found = record(offset, footer);
            if (!found)
                throw Failure(kUsage, "the summary is damaged");
            take(*found);
            offset += found->length;
        }
        return true;
    } catch (const Failure&) {
        m_schemas.clear();
        m_channels.clear();
        m_chunks.clear();
        m_attachments.clear();
        m_metadata.clear();
        return false;
    }
}

// Without a summary, what is whole from the start on.
void Reader::scan()
{
    uint64_t offset = sizeof kMagic;
    try {
        for (auto found = record(offset, m_size); found; found = record(offset, m_size)) {
            if (found->opcode == Opcode::dataEnd || found->opcode == Opcode::footer)
                break;
            take(*found);
            if (found->opcode == Opcode::chunk) {
                Bytes records;
                read(m_chunks.back(), records);
                takeDefinitions(records);
            }
            offset += found->length;
        }
    } catch (const Failure& failure) {
        m_damage = failure.what();
        std::erase_if(m_chunks, [&](const ChunkPlace& place) { return place.offset >= offset; });
    }
    m_damage = "the recording has no summary" + (m_damage.empty() ? "" : ": " + m_damage) + "; it is whole for " +
               std::to_string(offset) + " of " + std::to_string(m_size) + " bytes";
}

// Of the summary, or of the data of a file without one.
void Reader::take(const Record& record)
{
    Fields fields(record.content);
    switch (record.opcode) {
    case Opcode::chunkIndex: {
        ChunkPlace place{};
        place.firstTime = fields.number<uint64_t>();
        place.lastTime = fields.number<uint64_t>();
        place.offset = fields.number<uint64_t>();
        place.length = fields.number<uint64_t>();
        m_chunks.push_back(place);
        break;
    }
    case Opcode::chunk: {
        ChunkPlace place{record.offset, record.length, 0, 0};
        place.firstTime = fields.number<uint64_t>();
        place.lastTime = fields.number<uint64_t>();
        m_chunks.push_back(place);
        break;
    }
    case Opcode::attachmentIndex: {
        AttachmentPlace place{};
        place.offset = fields.number<uint64_t>();
        place.length = fields.number<uint64_t>();
        place.logTime = fields.number<uint64_t>();
        fields.number<uint64_t>(); // when it was made
        place.bytes = fields.number<uint64_t>();
        place.name = fields.text();
        place.mediaType = fields.text();
        m_attachments.push_back(place);
        break;
    }
    case Opcode::attachment: {
        AttachmentPlace place{record.offset, record.length, 0, 0, {}, {}};
        place.logTime = fields.number<uint64_t>();
        fields.number<uint64_t>();
        place.name = fields.text();
        place.mediaType = fields.text();
        place.bytes = fields.number<uint64_t>();
        m_attachments.push_back(place);
        break;
    }
    case Opcode::metadataIndex: {
        MetadataPlace place{};
        place.offset = fields.number<uint64_t>();
        place.length = fields.number<uint64_t>();
        place.name = fields.text();
        m_metadata.push_back(place);
        break;
    }
    case Opcode::metadata:
        m_metadata.push_back({record.offset, record.length, fields.text()});
        break;
    default:
        takeDefinition(record.opcode, record.content);
    }
}

void Reader::takeDefinition(Opcode opcode, std::span<const uint8_t> content)
{
    Fields fields(content);
    if (opcode == Opcode::schema) {
        const auto number = fields.number<uint16_t>();
        Schema schema{fields.text(), {}};
        schema.encoding = fields.text();
        m_schemas[number] = schema;
    } else if (opcode == Opcode::channel) {
        const auto number = fields.number<uint16_t>();
        const auto schema = fields.number<uint16_t>();
        Channel channel{fields.text(), m_schemas[schema].name, {}};
        channel.encoding = fields.text();
        m_channels[number] = channel;
    }
}

void Reader::takeDefinitions(std::span<const uint8_t> records)
{
    for (Fields fields(records); !fields.empty();) {
        const Inner inner = innerRecord(fields);
        takeDefinition(inner.opcode, inner.content);
    }
}

Bytes Reader::read(const AttachmentPlace& place) const
{
    constexpr uint64_t kMost = 64u << 20; // far above what a camera has
    if (place.length < kRecordHead || place.length > kMost)
        throw Failure(kUsage, "the attachment " + place.name + " claims an impossible size");
    const Bytes content = at(place.offset + kRecordHead, place.length - kRecordHead);
    Fields fields(content);
    fields.number<uint64_t>();
    fields.number<uint64_t>();
    fields.text();
    fields.text();
    const auto data = fields.counted<uint64_t>();
    const auto crc = fields.number<uint32_t>();
    if (crc != 0 && crc != crcOf(std::span(content).first(content.size() - sizeof crc)))
        throw Failure(kUsage, "the attachment " + place.name + " is damaged: its CRC is wrong");
    return {data.begin(), data.end()};
}

Names Reader::read(const MetadataPlace& place) const
{
    const auto found = record(place.offset, m_size);
    if (!found || found->opcode != Opcode::metadata)
        throw Failure(kUsage, "the recording's index names metadata where there is none");
    Fields fields(found->content);
    fields.text();
    return fields.names();
}

void Reader::read(const ChunkPlace& place, Bytes& records)
{
    const std::string where = "the chunk at byte " + std::to_string(place.offset);
    if (place.length < kRecordHead || place.length > kMostUnpacked)
        throw Failure(kUsage, where + " claims an impossible size");
    const Bytes content = at(place.offset, place.length);
    Fields fields(content);
    const Inner chunk = innerRecord(fields);
    if (chunk.opcode != Opcode::chunk || !fields.empty())
        throw Failure(kUsage, "the recording's index names a chunk at byte " + std::to_string(place.offset) +
                                  ", where there is none");
    fields = Fields(chunk.content);
    fields.number<uint64_t>();
    fields.number<uint64_t>();
    const auto unpacked = fields.number<uint64_t>();
    const auto crc = fields.number<uint32_t>();
    const std::string compression = fields.text();
    const auto packed = fields.counted<uint64_t>();
    if (unpacked > kMostUnpacked)
        throw Failure(kUsage, where + " claims to unpack to " + std::to_string(unpacked) + " bytes");
    if (compression == "zstd")
        m_packing.unpack(packed, records, unpacked);
    else if (compression.empty() && packed.size() == unpacked)
        records.assign(packed.begin(), packed.end());
    else
        throw Failure(kUsage, where + " is compressed by " + (compression.empty() ? "nothing" : compression) +
                                  ", which cannot be read");
    if (crc != 0 && crcOf(records) != crc)
        throw Failure(kUsage, where + " is damaged: its CRC is wrong");
}

Cursor::Cursor(Reader& reader, uint64_t from) : m_reader(reader), m_from(from)
{
    const auto& chunks = reader.chunks();
    while (m_chunk < chunks.size() && chunks[m_chunk].lastTime < from)
        ++m_chunk;
}

std::optional<Message> Cursor::next()
{
    for (;;) {
        while (m_offset < m_records.size()) {
            Fields records(std::span<const uint8_t>(m_records).subspan(m_offset));
            m_offset = m_records.size(); // where a damaged record ends the chunk
            const Inner inner = innerRecord(records);
            m_offset = static_cast<size_t>(inner.content.data() + inner.content.size() - m_records.data());
            if (inner.opcode != Opcode::message)
                continue;
            Fields fields(inner.content);
            Message message{};
            message.channel = fields.number<uint16_t>();
            message.sequence = fields.number<uint32_t>();
            message.logTime = fields.number<uint64_t>();
            message.publishTime = fields.number<uint64_t>();
            message.data = fields.rest();
            if (message.logTime >= m_from)
                return message;
        }
        if (m_chunk == m_reader.chunks().size())
            return {};
        m_records.clear();
        m_offset = 0;
        m_reader.read(m_reader.chunks()[m_chunk++], m_records);
    }
}

} // namespace mcap
