// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Drafts beside the file, renamed at the end.
#include "host/whole_files.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <system_error>
#include <unistd.h>

namespace
{

[[noreturn]] void fail(const std::filesystem::path& path, int error)
{
    throw Failure(kFailed, path.string() + ": " + strerror(error));
}

// A link stays a link; the file that it names is replaced.
std::filesystem::path linked(const std::filesystem::path& path)
{
    std::error_code unreachable;
    const bool link = std::filesystem::is_symlink(path, unreachable);
    const std::filesystem::path target = link ? std::filesystem::weakly_canonical(path, unreachable) : path;
    return unreachable ? path : target;
}

// A file that is removed again unless it is renamed to the name for which it was made.
class Draft
{
public:
    explicit Draft(const std::filesystem::path& path)
        : m_path(linked(path)), m_name(m_path.string() + "." + std::to_string(getpid()) + ".part")
    {
        unlink(m_name.c_str()); // left by a process that had our number and was killed
        m_fd = open(m_name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (m_fd < 0)
            fail(m_path, errno);
    }
    ~Draft()
    {
        close(m_fd);
        unlink(m_name.c_str()); // no such file after keep()
    }
    Draft(const Draft&) = delete;
    Draft& operator=(const Draft&) = delete;

    void write(std::span<const uint8_t> bytes)
    {
        while (!bytes.empty()) {
            const ssize_t written = ::write(m_fd, bytes.data(), bytes.size());
            if (written > 0)
                bytes = bytes.subspan(static_cast<size_t>(written));
            else if (written == 0 || errno != EINTR)
                fail(m_path, written == 0 ? ENOSPC : errno);
        }
    }

    void keep(Existing existing, OnDisk when)
    {
        if (when == OnDisk::now && fsync(m_fd) != 0)
            fail(m_path, errno);
        if (existing == Existing::refuse) {
            if (renameat2(AT_FDCWD, m_name.c_str(), AT_FDCWD, m_path.c_str(), RENAME_NOREPLACE) == 0)
                return;
            if (errno == EEXIST)
                throw FileExists(m_path);
            if (errno != EINVAL) // the file system does not know this rename
                fail(m_path, errno);
        }
        requireNewFile(m_path, existing);
        if (rename(m_name.c_str(), m_path.c_str()) != 0)
            fail(m_path, errno);
    }

private:
    std::filesystem::path m_path;
    std::string m_name;
    int m_fd;
};

} // namespace

void requireWritableDirectory(const std::filesystem::path& directory)
{
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error)
        fail(directory, error.value());
    const Draft probe(directory / "."); // never kept
}

void requireNewFile(const std::filesystem::path& path, Existing existing)
{
    std::error_code unreachable;
    const std::filesystem::file_status status = std::filesystem::status(path, unreachable);
    if (!std::filesystem::exists(status))
        return;
    if (!std::filesystem::is_regular_file(status))
        throw Failure(kFailed, path.string() + " exists and is not a regular file");
    if (existing == Existing::refuse)
        throw FileExists(path);
}

void requireWritableFile(const std::filesystem::path& path, Existing existing)
{
    requireNewFile(path, existing);
    const Draft probe(path); // never kept
}

void writeFile(const std::filesystem::path& path, std::span<const uint8_t> bytes, Existing existing, OnDisk when)
{
    requireNewFile(path, existing);
    Draft draft(path);
    draft.write(bytes);
    draft.keep(existing, when);
}

Bytes readFile(const std::filesystem::path& path, size_t size)
{
    std::ifstream stream(path, std::ios::binary);
    Bytes bytes(size + 1); // one more byte shows a longer file
    stream.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!stream.is_open() || stream.bad())
        throw Failure(kFailed, path.string() + " cannot be read");
    if (static_cast<size_t>(stream.gcount()) != size)
        throw Failure(kUsage, path.string() + " is not " + std::to_string(size) + " bytes long");
    bytes.resize(size);
    return bytes;
}
