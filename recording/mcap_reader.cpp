// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "recording/mcap_reader.h"

#include <algorithm>

#include "recording/mcap_bytes.h"
#include "recording/mcap_crc.h"

namespace mcap
{
namespace
{

// Whether it may stand between chunks, and nowhere else. Definitions stand there and in the summary.
bool isData(Opcode opcode)
{
    return opcode == Opcode::chunk || opcode == Opcode::attachment || opcode == Opcode::metadata;
}

bool isDefinition(Opcode opcode)
{
    return opcode == Opcode::schema || opcode == Opcode::channel;
}

bool endsData(Opcode opcode)
{
    return opcode == Opcode{} || opcode == Opcode::dataEnd || opcode == Opcode::footer;
}

} // namespace

Reader::Reader(const std::filesystem::path& path) : m_file(path)
{
    if (!readSummary())
        scan();
}

// Returns false when there is none, or it is damaged. Nothing of it has then been taken.
bool Reader::readSummary()
{
    const uint64_t size = m_file.size();
    if (size < sizeof kMagic + kFooterBytes + sizeof kMagic)
        return false;
    const uint64_t footer = size - sizeof kMagic - kFooterBytes;
    const Bytes end = m_file.at(footer, kFooterBytes + sizeof kMagic);
    Fields fields(end);
    const bool isFooter = fields.number<uint8_t>() == static_cast<uint8_t>(Opcode::footer) &&
                          fields.number<uint64_t>() == kFooterBytes - kRecordHead;
    const auto start = fields.number<uint64_t>();
    fields.number<uint64_t>(); // where the summary's groups are told
    const auto crc = fields.number<uint32_t>();
    if (!isFooter || !std::ranges::equal(fields.rest(), kMagic) || start < sizeof kMagic || start > footer)
        return false;
    if (crc != 0 && m_file.crc(start, size - sizeof kMagic - sizeof crc) != crc)
        return false;
    try {
        for (uint64_t offset = start; offset < footer;) {
            const auto found = m_file.record(offset, footer);
            if (!found || isData(found->opcode))
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
        m_counts.reset();
        return false;
    }
}

// Without a summary, what is whole from the start on.
void Reader::scan()
{
    const auto note = [&](const Failure& failure) {
        if (++m_faultCount <= kMostFaults)
            m_faults.emplace_back(failure.what());
    };
    m_counts.emplace();
    uint64_t offset = sizeof kMagic;
    try {
        for (auto found = m_file.record(offset, m_file.size()); found && !endsData(found->opcode);
             found = m_file.record(offset, m_file.size())) {
            try {
                if (isData(found->opcode) || isDefinition(found->opcode))
                    take(*found);
            } catch (const Failure& failure) {
                note(failure);
            }
            offset += found->length;
        }
    } catch (const Failure& failure) {
        note(failure);
    }
    m_damage = "the recording has no summary" + (m_faults.empty() ? "" : ": " + m_faults.front()) +
               (m_faultCount < 2 ? "" : ", and " + std::to_string(m_faultCount - 1) + " more") + "; it has " +
               std::to_string(offset) + " bytes of records in " + std::to_string(m_file.size());
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
    case Opcode::chunk:
        takeChunk(record);
        break;
    case Opcode::statistics:
        for (int size : {8, 2, 4, 4, 4, 4, 8, 8}) // numbers of records, first and last time
            fields.bytes(static_cast<uint64_t>(size));
        m_counts.emplace();
        for (Fields list(fields.counted<uint32_t>()); !list.empty();) {
            const auto channel = list.number<uint16_t>();
            if (const auto count = list.number<uint64_t>())
                (*m_counts)[channel] = count;
        }
        break;
    case Opcode::attachmentIndex: {
        AttachmentPlace place{};
        place.offset = fields.number<uint64_t>();
        place.length = fields.number<uint64_t>();
        place.logTime = fields.number<uint64_t>();
        fields.number<uint64_t>(); // when it was made
        place.bytes = fields.number<uint64_t>();
        place.name = fields.name();
        place.mediaType = fields.name();
        m_attachments.push_back(place);
        break;
    }
    case Opcode::attachment: {
        AttachmentPlace place{record.offset, record.length, 0, 0, {}, {}};
        place.logTime = fields.number<uint64_t>();
        fields.number<uint64_t>();
        place.name = fields.name();
        place.mediaType = fields.name();
        place.bytes = fields.number<uint64_t>();
        m_attachments.push_back(place);
        break;
    }
    case Opcode::metadataIndex: {
        MetadataPlace place{};
        place.offset = fields.number<uint64_t>();
        place.length = fields.number<uint64_t>();
        place.name = fields.name();
        m_metadata.push_back(place);
        break;
    }
    case Opcode::metadata:
        m_metadata.push_back({record.offset, record.length, fields.name()});
        break;
    default:
        takeDefinition(record.opcode, record.content);
    }
}

void Reader::takeDefinition(Opcode opcode, std::span<const uint8_t> content)
{
    const auto require = [](bool possible) {
        if (!possible)
            throw Failure(kUsage, "a definition of messages claims an impossible size");
    };
    Fields fields(content);
    if (opcode == Opcode::schema) {
        const auto number = fields.number<uint16_t>();
        const auto schema = std::make_shared<Schema>();
        schema->name = fields.name();
        schema->encoding = fields.name();
        schema->definition = fields.text(kMostDefinition);
        require(m_schemas.size() < kMostDefinitions);
        m_schemas[number] = schema;
    } else if (opcode == Opcode::channel) {
        const auto number = fields.number<uint16_t>();
        const auto schema = m_schemas.find(fields.number<uint16_t>());
        Channel channel;
        channel.topic = fields.name();
        channel.encoding = fields.name();
        channel.schema = schema == m_schemas.end() ? std::make_shared<Schema>() : schema->second;
        channel.type = channel.schema->name;
        require(m_channels.size() < kMostDefinitions);
        m_channels[number] = channel;
    }
}

// Of a file without a summary. Nothing of a chunk is taken unless all of it is whole.
void Reader::takeChunk(const Record& record)
{
    Fields fields(record.content);
    ChunkPlace place{record.offset, record.length, 0, 0};
    place.firstTime = fields.number<uint64_t>();
    place.lastTime = fields.number<uint64_t>();
    Bytes records;
    read(place, records);
    std::map<uint16_t, uint64_t> counts;
    std::vector<Inner> definitions;
    for (Fields list(records); !list.empty();) {
        const Inner inner = innerRecord(list);
        if (inner.opcode == Opcode::message)
            ++counts[Fields(inner.content).number<uint16_t>()];
        else if (isDefinition(inner.opcode))
            definitions.push_back(inner);
        if (definitions.size() > 2 * kMostDefinitions) // a chunk has room for far more than there is memory
            throw Failure(kUsage, "the chunk at byte " + std::to_string(record.offset) + " holds too many definitions");
    }
    for (const Inner& definition : definitions)
        takeDefinition(definition.opcode, definition.content);
    for (const auto& [channel, count] : counts)
        (*m_counts)[channel] += count;
    m_chunks.push_back(place);
}

Bytes Reader::read(const AttachmentPlace& place) const
{
    constexpr uint64_t kMost = 64u << 20; // far above what a camera has
    if (place.length < kRecordHead || place.length > kMost)
        throw Failure(kUsage, "the attachment " + place.name + " claims an impossible size");
    const Bytes content = m_file.at(place.offset + kRecordHead, place.length - kRecordHead);
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
    const auto found = m_file.record(place.offset, m_file.size());
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
    const Bytes content = m_file.at(place.offset, place.length);
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
    const std::string compression = fields.name();
    const auto packed = fields.counted<uint64_t>();
    if (unpacked > kMostUnpacked)
        throw Failure(kUsage, where + " claims to unpack to " + std::to_string(unpacked) + " bytes");
    if (compression == "zstd")
        m_packing.unpack(packed, records, unpacked);
    else if (compression.empty() && packed.size() == unpacked)
        records.assign(packed.begin(), packed.end());
    else
        throw Failure(kUsage, where + " is compressed in a way that cannot be read: '" + compression + "'");
    if (crc != 0 && crcOf(records) != crc)
        throw Failure(kUsage, where + " is damaged: its CRC is wrong");
}

Message messageFrom(std::span<const uint8_t> content)
{
    Fields fields(content);
    Message message{};
    message.channel = fields.number<uint16_t>();
    message.sequence = fields.number<uint32_t>();
    message.logTime = fields.number<uint64_t>();
    message.publishTime = fields.number<uint64_t>();
    message.data = fields.rest();
    return message;
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
            const Message message = messageFrom(inner.content);
            if (message.logTime >= m_from)
                return message;
        }
        if (m_chunk == m_reader.chunks().size())
            return {};
        Bytes records = std::move(m_records);
        m_records.clear(); // also when the chunk turns out to be damaged
        m_offset = 0;
        m_reader.read(m_reader.chunks()[m_chunk++], records);
        m_records = std::move(records);
    }
}

} // namespace mcap
