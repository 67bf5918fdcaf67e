// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The bytes and records of an MCAP file that is not trusted. The file is read by calls, not mapped: a file that another
// program cuts meanwhile then ends early, and no more.
#pragma once

#include <filesystem>
#include <optional>

#include "host/bytes.h"
#include "recording/mcap.h"

namespace mcap
{

struct Record {
    Opcode opcode;
    uint64_t offset, length; // of the whole record
    Bytes content;           // of chunks and attachments only what comes before their data
};

class File
{
public:
    // Fails when it cannot be read or does not begin as an MCAP file.
    explicit File(const std::filesystem::path& path);
    ~File();
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    uint64_t size() const { return m_size; }

    // Fails when the file ends before.
    Bytes at(uint64_t offset, uint64_t size) const;

    // The record at a place, if there is one that ends before `end`. Fails when it claims more than kMostUnpacked where
    // its data cannot wait.
    std::optional<Record> record(uint64_t offset, uint64_t end) const;

    // The CRC of what lies between two places.
    uint32_t crc(uint64_t begin, uint64_t end) const;

private:
    const int m_descriptor;
    uint64_t m_size = 0;
};

} // namespace mcap
