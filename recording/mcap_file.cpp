// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "recording/mcap_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "recording/mcap_bytes.h"
#include "recording/mcap_crc.h"

namespace mcap
{
namespace
{

constexpr uint64_t kMostBeforeData = 4096; // of chunks and attachments

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

} // namespace

File::File(const std::filesystem::path& path) : m_descriptor(opened(path))
{
    try {
        m_size = static_cast<uint64_t>(lseek(m_descriptor, 0, SEEK_END));
        if (!std::ranges::equal(at(0, std::min<uint64_t>(m_size, sizeof kMagic)), kMagic))
            throw Failure(kUsage, path.string() + " is no recording: it does not begin as an MCAP file");
    } catch (...) {
        close(m_descriptor);
        throw;
    }
}

File::~File()
{
    close(m_descriptor);
}

Bytes File::at(uint64_t offset, uint64_t size) const
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

std::optional<Record> File::record(uint64_t offset, uint64_t end) const
{
    if (offset > end || end - offset < kRecordHead)
        return {};
    const Bytes head = at(offset, kRecordHead);
    Fields fields(head);
    const auto opcode = static_cast<Opcode>(fields.number<uint8_t>());
    const auto length = fields.number<uint64_t>();
    if (length > end - offset - kRecordHead)
        return {};
    const bool isLong = opcode == Opcode::chunk || opcode == Opcode::attachment;
    if (!isLong && length > kMostUnpacked)
        throw Failure(kUsage, "the record at byte " + std::to_string(offset) + " claims an impossible size");
    return Record{opcode, offset, kRecordHead + length,
                  at(offset + kRecordHead, isLong ? std::min(length, kMostBeforeData) : length)};
}

uint32_t File::crc(uint64_t begin, uint64_t end) const
{
    constexpr uint64_t kAtOnce = 1u << 20;
    uint32_t crc = 0;
    for (uint64_t offset = begin; offset < end; offset += kAtOnce)
        crc = crcOf(at(offset, std::min(kAtOnce, end - offset)), crc);
    return crc;
}

} // namespace mcap
