// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "recording/mcap_verify.h"

#include <algorithm>

#include "recording/mcap_bytes.h"

namespace mcap
{
namespace
{

// What the summary says of a chunk.
struct Index {
    ChunkPlace place{};
    std::map<uint16_t, uint64_t> channels; // where the index of each one's messages is
    uint64_t length = 0;                   // of these indexes
    std::string compression;
    uint64_t packed = 0, unpacked = 0;

    bool operator==(const Index&) const = default;
};

struct Entry {
    uint64_t time, offset; // of a message, the latter in its chunk

    auto operator<=>(const Entry&) const = default;
};

struct Group {
    uint64_t begin, end;

    bool operator==(const Group&) const = default;
};

Index indexFrom(std::span<const uint8_t> content)
{
    Fields fields(content);
    Index index;
    index.place.firstTime = fields.number<uint64_t>();
    index.place.lastTime = fields.number<uint64_t>();
    index.place.offset = fields.number<uint64_t>();
    index.place.length = fields.number<uint64_t>();
    for (Fields list(fields.counted<uint32_t>()); !list.empty();) {
        const auto channel = list.number<uint16_t>();
        index.channels[channel] = list.number<uint64_t>();
    }
    index.length = fields.number<uint64_t>();
    index.compression = fields.name();
    index.packed = fields.number<uint64_t>();
    index.unpacked = fields.number<uint64_t>();
    return index;
}

std::string atByte(uint64_t offset)
{
    return " at byte " + std::to_string(offset);
}

void require(bool holds, const std::string& fault)
{
    if (!holds)
        throw Failure(kUsage, fault);
}

class Verifier
{
public:
    Verifier(Reader& reader, const Judge& judge, const Step& step)
        : m_reader(reader), m_file(reader.file()), m_judge(judge), m_step(step)
    {
    }

    Verdict run()
    {
        const uint64_t end = data();
        if (m_reader.damage().empty() && m_verdict.faultCount == 0) // otherwise it could only tell the same again
            guarded([&] { summary(end); });
        if (!m_reader.damage().empty())
            fault("the recording has no summary that is whole; its records end" + atByte(end) + " of " +
                  std::to_string(m_file.size()));
        return m_verdict;
    }

private:
    void fault(const std::string& sentence)
    {
        if (++m_verdict.faultCount <= kMostFaults)
            m_verdict.faults.push_back(sentence);
    }

    // A record that is damaged does not keep others from being judged; a disk that cannot be read does.
    template <typename Work> void guarded(const Work& work)
    {
        try {
            work();
        } catch (const Failure& failure) {
            if (failure.code != kUsage)
                throw;
            fault(failure.what());
        }
    }

    // Returns where it ends.
    uint64_t data()
    {
        uint64_t offset = sizeof kMagic;
        guarded([&] {
            for (bool ended = false; !ended;) {
                m_step(offset);
                const auto record = m_file.record(offset, m_file.size());
                if (!record || record->opcode == Opcode{})
                    return;
                if (offset == sizeof kMagic && record->opcode != Opcode::header)
                    fault("the recording does not begin with a header");
                if (record->opcode != Opcode::messageIndex)
                    endIndexes();
                guarded([&] { take(*record); });
                offset += record->length;
                ended = record->opcode == Opcode::dataEnd;
            }
        });
        endIndexes();
        return offset;
    }

    void take(const Record& record)
    {
        Fields fields(record.content);
        switch (record.opcode) {
        case Opcode::schema:
        case Opcode::channel:
            define(record.opcode, record.content);
            break;
        case Opcode::chunk:
            chunk(record);
            break;
        case Opcode::messageIndex:
            messageIndex(record);
            break;
        case Opcode::attachment: {
            AttachmentPlace place{record.offset, record.length, 0, 0, {}, {}};
            place.logTime = fields.number<uint64_t>();
            fields.number<uint64_t>(); // when it was made
            place.name = fields.name();
            place.mediaType = fields.name();
            place.bytes = fields.number<uint64_t>();
            m_attachments.push_back(place);
            m_reader.read(place);
            break;
        }
        case Opcode::metadata:
            m_metadata.push_back({record.offset, record.length, fields.name()});
            fields.names();
            break;
        case Opcode::dataEnd: {
            const auto crc = fields.number<uint32_t>();
            require(crc == 0 || crc == m_file.crc(0, record.offset),
                    "the data before byte " + std::to_string(record.offset) + " is damaged: its CRC is wrong");
            break;
        }
        default: // of later versions, and the header
            require(record.opcode == Opcode::header || record.opcode > Opcode::dataEnd,
                    "the record" + atByte(record.offset) + " does not belong between chunks");
        }
    }

    void define(Opcode opcode, std::span<const uint8_t> content)
    {
        Fields fields(content);
        const auto number = fields.number<uint16_t>();
        const Bytes definition(content.begin(), content.end());
        const auto [known, isNew] = m_definitions.try_emplace({opcode, number}, definition);
        require(isNew || known->second == definition, (opcode == Opcode::schema ? "schema " : "channel ") +
                                                          std::to_string(number) + " is defined in two ways");
    }

    void chunk(const Record& record)
    {
        Fields fields(record.content);
        Index index;
        index.place = {record.offset, record.length, 0, 0};
        index.place.firstTime = fields.number<uint64_t>();
        index.place.lastTime = fields.number<uint64_t>();
        index.unpacked = fields.number<uint64_t>();
        fields.number<uint32_t>(); // the CRC
        index.compression = fields.name();
        index.packed = fields.number<uint64_t>();
        m_chunks.push_back(index);
        m_isRead = false;
        m_reader.read(index.place, m_records);
        m_isRead = true;
        ++m_verdict.chunks;
        for (Fields records(m_records); !records.empty();) {
            const uint64_t offset = m_records.size() - records.left();
            const Inner inner = innerRecord(records);
            if (inner.opcode == Opcode::message)
                message(index.place, offset, inner.content);
            else if (inner.opcode == Opcode::schema || inner.opcode == Opcode::channel)
                define(inner.opcode, inner.content);
            else
                require(inner.opcode > Opcode::dataEnd,
                        "the chunk" + atByte(record.offset) + " holds a record that does not belong into it");
        }
        require(!m_entries.empty(), "the chunk" + atByte(record.offset) + " is empty");
    }

    void message(const ChunkPlace& chunk, uint64_t offset, std::span<const uint8_t> content)
    {
        const Message message = messageFrom(content);
        m_entries[message.channel].push_back({message.logTime, offset});
        ++m_counts[message.channel];
        ++m_verdict.messages;
        const auto channel = m_reader.channels().find(message.channel);
        const std::string where = " of the chunk" + atByte(chunk.offset);
        require(channel != m_reader.channels().end() && m_definitions.contains({Opcode::channel, message.channel}),
                "a message" + where + " is of a channel that is not defined before it");
        guarded([&] {
            try {
                require(message.logTime >= chunk.firstTime && message.logTime <= chunk.lastTime,
                        "it is not of the time that the chunk claims");
                m_judge(channel->second, message);
            } catch (const Failure& failure) {
                throw Failure(failure.code, "message " + std::to_string(message.sequence) + " of " +
                                                channel->second.topic + where + ": " + failure.what());
            }
        });
    }

    void messageIndex(const Record& record)
    {
        Fields fields(record.content);
        const auto channel = fields.number<uint16_t>();
        std::vector<Entry> entries;
        for (Fields list(fields.counted<uint32_t>()); !list.empty();) {
            const auto time = list.number<uint64_t>();
            entries.push_back({time, list.number<uint64_t>()});
        }
        require(!m_chunks.empty(), "the index" + atByte(record.offset) + " is of no chunk");
        m_chunks.back().channels[channel] = record.offset;
        m_chunks.back().length += record.length;
        std::vector<Entry> found;
        if (const auto node = m_entries.extract(channel))
            found = node.mapped();
        std::ranges::sort(entries);
        std::ranges::sort(found);
        require(entries == found || !m_isRead,
                "the index" + atByte(record.offset) + " does not fit the messages of its chunk");
    }

    void endIndexes()
    {
        if (!m_entries.empty())
            fault("the chunk" + atByte(m_chunks.back().place.offset) + " has messages without an index");
        m_entries.clear();
    }

    void summary(uint64_t begin)
    {
        const uint64_t footer = m_file.size() - sizeof kMagic - kFooterBytes;
        const Bytes end = m_file.at(footer + kRecordHead, 2 * sizeof(uint64_t));
        Fields fields(end);
        require(fields.number<uint64_t>() == begin, "the summary does not follow the data");
        const auto offsets = fields.number<uint64_t>();
        size_t chunks = 0, definitions = 0;
        for (uint64_t offset = begin; offset < footer;) {
            const auto record = m_file.record(offset, footer);
            require(record.has_value(), "the summary is damaged" + atByte(offset));
            guarded([&] {
                if (record->opcode == Opcode::summaryOffset)
                    groupOffset(*record, offsets);
                else
                    grow(m_groups[record->opcode], *record);
                if (record->opcode == Opcode::chunkIndex) {
                    ++chunks;
                    require(chunks <= m_chunks.size() && indexFrom(record->content) == m_chunks[chunks - 1],
                            "the summary does not fit chunk " + std::to_string(chunks));
                }
                if (record->opcode == Opcode::statistics)
                    statistics(record->content);
                if (record->opcode == Opcode::schema || record->opcode == Opcode::channel) {
                    ++definitions;
                    define(record->opcode, record->content);
                }
            });
            offset += record->length;
        }
        require(chunks == m_chunks.size() && definitions == m_definitions.size() &&
                    m_attachments == m_reader.attachments() && m_metadata == m_reader.metadata(),
                "the summary does not name what the data holds");
    }

    static void grow(Group& group, const Record& record)
    {
        require(group.end == 0 || group.end == record.offset, "the summary is not in groups" + atByte(record.offset));
        group.begin = group.end == 0 ? record.offset : group.begin;
        group.end = record.offset + record.length;
    }

    void groupOffset(const Record& record, uint64_t offsets)
    {
        Fields fields(record.content);
        const auto group = m_groups.find(static_cast<Opcode>(fields.number<uint8_t>()));
        const auto begin = fields.number<uint64_t>();
        const auto length = fields.number<uint64_t>();
        require(record.offset >= offsets && offsets != 0 && group != m_groups.end() && group->second.begin == begin &&
                    group->second.end - begin == length,
                "the summary does not say where its groups are" + atByte(record.offset));
    }

    void statistics(std::span<const uint8_t> content)
    {
        Fields fields(content);
        const auto messages = fields.number<uint64_t>();
        const auto schemas = fields.number<uint16_t>();
        const uint64_t numbers[] = {fields.number<uint32_t>(), fields.number<uint32_t>(), fields.number<uint32_t>(),
                                    fields.number<uint32_t>()};
        const uint64_t found[] = {m_definitions.size() - schemas, m_attachments.size(), m_metadata.size(),
                                  m_chunks.size()};
        require(messages == m_verdict.messages && std::ranges::equal(numbers, found) &&
                    m_reader.counts() == std::optional(m_counts),
                "the summary's statistics do not fit the data");
    }

    Reader& m_reader;
    const File& m_file;
    const Judge& m_judge;
    const Step& m_step;
    Verdict m_verdict;
    Bytes m_records;
    bool m_isRead = false;                            // the present chunk
    std::map<uint16_t, std::vector<Entry>> m_entries; // of the present chunk, until their indexes have been seen
    std::vector<Index> m_chunks;
    std::vector<AttachmentPlace> m_attachments;
    std::vector<MetadataPlace> m_metadata;
    std::map<uint16_t, uint64_t> m_counts;
    std::map<std::pair<Opcode, uint16_t>, Bytes> m_definitions;
    std::map<Opcode, Group> m_groups;
};

} // namespace

Verdict verify(Reader& reader, const Judge& judge, const Step& step)
{
    return Verifier(reader, judge, step).run();
}

} // namespace mcap
