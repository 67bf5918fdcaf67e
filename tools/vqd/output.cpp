// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// See output.h.
#include "output.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <system_error>
#include <unistd.h>

#include "exit_codes.h"

namespace
{

[[noreturn]] void fail(const std::filesystem::path& path, int error)
{
    throw Failure(kFailed, path.string() + ": " + strerror(error));
}

// A file that vanishes unless it is renamed to the name that it was made for.
class Draft
{
public:
    explicit Draft(const std::filesystem::path& path)
        : m_path(path), m_name(path.string() + "." + std::to_string(getpid()) + ".part")
    {
        unlink(m_name.c_str()); // of a process that had our number and was killed
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

    void keep()
    {
        if (fsync(m_fd) != 0 || rename(m_name.c_str(), m_path.c_str()) != 0)
            fail(m_path, errno);
    }

private:
    std::filesystem::path m_path;
    std::string m_name;
    int m_fd;
};

} // namespace

Output::Output()
{
    signal(SIGPIPE, SIG_IGN); // a reader that has gone is a write that fails, and no reason to leave a camera grabbing
    const int data = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    m_data = data < 0 ? nullptr : fdopen(data, "w");
    if (m_data == nullptr || dup2(STDERR_FILENO, STDOUT_FILENO) < 0)
        throw Failure(kFailed, std::string("standard output or error: ") + strerror(errno));
    setvbuf(stdout, nullptr, _IOLBF, 0); // in step with our own messages
}

Output::~Output()
{
    fflush(stdout);
    dup2(fileno(m_data), STDOUT_FILENO);
    fclose(m_data);
}

void Output::print(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    vfprintf(m_data, format, arguments);
    va_end(arguments);
}

void Output::finish()
{
    if (fflush(m_data) != 0 || ferror(m_data))
        throw Failure(kFailed, std::string("standard output: ") + strerror(errno));
}

void requireWritableDirectory(const std::filesystem::path& directory)
{
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error)
        fail(directory, error.value());
    const Draft probe(directory / "."); // never kept
}

void writeFile(const std::filesystem::path& path, std::span<const uint8_t> bytes)
{
    Draft draft(path);
    draft.write(bytes);
    draft.keep();
}
