// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "recording/mcap_repair.h"

#include <algorithm>

#include "recording/mcap_bytes.h"
#include "recording/mcap_writer.h"

namespace mcap
{
namespace
{

bool hasPackedChunks(const Reader& reader)
{
    return std::ranges::any_of(reader.chunks(), [&](const ChunkPlace& place) {
        const auto record = reader.file().record(place.offset, reader.fileBytes());
        if (!record || record->opcode != Opcode::chunk)
            return false;
        try {
            Fields fields(record->content);
            for (int i = 0; i < 3; ++i)
                fields.number<uint64_t>(); // first and last time, bytes when unpacked
            fields.number<uint32_t>();     // CRC
            return fields.name() == "zstd";
        } catch (const Failure&) {
            return false; // it is lost anyway
        }
    });
}

class Repair
{
public:
    Repair(Reader& from, int descriptor, const Step& step)
        : m_from(from), m_step(step),
          m_writer(descriptor, {.compression = hasPackedChunks(from) ? Compression::zstd : Compression::none,
                                .chunkBytes = SIZE_MAX,
                                .chunkTime = UINT64_MAX,
                                .repeats = true})
    {
    }

    Repaired run()
    {
        m_done.lost = m_from.faults(); // the reader has left these out already
        m_done.lostCount = m_from.faultCount();
        for (const auto& [number, channel] : m_from.channels())
            m_channels[number] = m_writer.addChannel(channel.topic, typeOf(channel));
        auto attachment = m_from.attachments().begin();
        auto metadata = m_from.metadata().begin();
        const auto copyUpTo = [&](uint64_t offset) {
            for (; metadata != m_from.metadata().end() && metadata->offset < offset; ++metadata)
                copy(*metadata);
            for (; attachment != m_from.attachments().end() && attachment->offset < offset; ++attachment)
                copy(*attachment);
        };
        for (const ChunkPlace& chunk : m_from.chunks()) {
            m_step(chunk.offset);
            copyUpTo(chunk.offset);
            copy(chunk);
        }
        copyUpTo(UINT64_MAX);
        m_writer.finish();
        if (m_writer.lostMessages() > 0)
            throw Failure(kFailed, "the disk has no room for the repaired recording");
        return m_done;
    }

private:
    const msg::MessageType& typeOf(const Channel& channel)
    {
        const Schema& schema = *channel.schema;
        if (channel.encoding != "cdr" || schema.encoding != "ros2msg")
            throw Failure(kUsage, channel.topic + " has no messages of ROS 2, so vqd has not recorded them");
        return m_types.try_emplace(&schema, msg::MessageType{schema.name.c_str(), schema.definition.c_str(), ""})
            .first->second;
    }

    // What cannot be read is lost; when the disk fails, all ends.
    template <typename Read> bool couldRead(const Read& read)
    {
        try {
            read();
            return true;
        } catch (const Failure& failure) {
            if (failure.code != kUsage)
                throw;
            if (++m_done.lostCount <= kMostFaults)
                m_done.lost.emplace_back(failure.what());
            return false;
        }
    }

    void copy(const MetadataPlace& place)
    {
        Names names;
        if (!couldRead([&] { names = m_from.read(place); }))
            return;
        m_writer.metadata(place.name, names);
        ++m_done.metadata;
    }

    void copy(const AttachmentPlace& place)
    {
        Bytes bytes;
        if (!couldRead([&] { bytes = m_from.read(place); }))
            return;
        m_writer.attachment(place.name, place.mediaType, place.logTime, bytes);
        ++m_done.attachments;
    }

    void copy(const ChunkPlace& place)
    {
        std::vector<Message> messages;
        const bool isWhole = couldRead([&] {
            m_from.read(place, m_records);
            for (Fields records(m_records); !records.empty();) {
                const Inner inner = innerRecord(records);
                if (inner.opcode != Opcode::message)
                    continue;
                messages.push_back(messageFrom(inner.content));
                if (!m_channels.contains(messages.back().channel))
                    throw Failure(kUsage, "the chunk at byte " + std::to_string(place.offset) +
                                              " has messages of a channel whose definition is lost");
            }
        });
        if (!isWhole)
            return;
        for (const Message& message : messages) {
            if (message.logTime < m_last)
                throw Failure(kUsage, "its times go back in the chunk at byte " + std::to_string(place.offset) +
                                          ", so vqd has not recorded it");
            m_last = message.logTime;
            m_writer.message(m_channels.at(message.channel), message.sequence, message.logTime, message.publishTime,
                             message.data);
        }
        m_writer.endChunk();
        m_done.messages += messages.size();
        ++m_done.chunks;
    }

    Reader& m_from;
    const Step& m_step;
    std::map<const Schema*, msg::MessageType> m_types;
    Writer m_writer;
    std::map<uint16_t, uint16_t> m_channels; // old and new number
    Bytes m_records;
    uint64_t m_last = 0; // time of a message
    Repaired m_done;
};

} // namespace

Repaired repair(Reader& from, int descriptor, const Step& step)
{
    return Repair(from, descriptor, step).run();
}

} // namespace mcap
