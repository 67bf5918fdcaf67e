// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The records of an MCAP file, version 0 (https://mcap.dev/spec), as far as they are written and read here.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace mcap
{

inline constexpr uint8_t kMagic[] = {0x89, 'M', 'C', 'A', 'P', '0', '\r', '\n'};

enum class Opcode : uint8_t {
    header = 1,
    footer,
    schema,
    channel,
    message,
    chunk,
    messageIndex,
    chunkIndex,
    attachment,
    attachmentIndex,
    statistics,
    metadata,
    metadataIndex,
    summaryOffset,
    dataEnd
};

inline constexpr uint64_t kRecordHead = 1 + 8;                          // opcode, length of the content
inline constexpr uint64_t kFooterBytes = kRecordHead + 8 + 8 + 4;       // starts of summary and of its offsets, CRC
inline constexpr uint64_t kMostUnpacked = 256u << 20;                   // bytes that a chunk may claim to unpack to
inline constexpr size_t kMostDefinitions = 1000;                        // schemas, and channels
inline constexpr size_t kMostName = 4096, kMostDefinition = 256u << 10; // bytes of their texts

enum class Compression { none, zstd };

using Names = std::map<std::string, std::string>;

struct Schema {
    std::string name, encoding; // such as sensor_msgs/msg/Image, ros2msg
    std::string definition;
};

struct Channel {
    std::string topic;
    std::string type;     // of its messages, as in sensor_msgs/msg/Image
    std::string encoding; // of its messages
    std::shared_ptr<const Schema> schema;
};

struct ChunkPlace {
    uint64_t offset, length;      // of the whole record
    uint64_t firstTime, lastTime; // of its messages

    bool operator==(const ChunkPlace&) const = default;
};

struct AttachmentPlace {
    uint64_t offset, length; // of the whole record
    uint64_t logTime, bytes;
    std::string name, mediaType;

    bool operator==(const AttachmentPlace&) const = default;
};

struct MetadataPlace {
    uint64_t offset, length; // of the whole record
    std::string name;

    bool operator==(const MetadataPlace&) const = default;
};

} // namespace mcap
