// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// See output.h.
#include "output.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <fstream>
#include <iostream>
#include <string>
#include <sys/mman.h>
#include <system_error>
#include <unistd.h>

#include "common.h"
#include "host/failure.h"

namespace
{

[[noreturn]] void fail(const std::filesystem::path& path, int error)
{
    throw Failure(kFailed, path.string() + ": " + strerror(error));
}

[[noreturn]] void failUnforced(const std::filesystem::path& path, int error)
{
    if (error == EEXIST)
        throw Failure(kFailed, path.string() + " exists; --force replaces it");
    fail(path, error);
}

// A link stays one: what it names is replaced.
std::filesystem::path linked(const std::filesystem::path& path)
{
    std::error_code unreachable;
    const bool link = std::filesystem::is_symlink(path, unreachable);
    const std::filesystem::path target = link ? std::filesystem::weakly_canonical(path, unreachable) : path;
    return unreachable ? path : target;
}

// A file that vanishes unless it is renamed to the name that it was made for.
class Draft
{
public:
    explicit Draft(const std::filesystem::path& path)
        : m_path(linked(path)), m_name(m_path.string() + "." + std::to_string(getpid()) + ".part")
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

    void keep(OnDisk when)
    {
        if (when == OnDisk::now && fsync(m_fd) != 0)
            fail(m_path, errno);
        if (!common.force && renameat2(AT_FDCWD, m_name.c_str(), AT_FDCWD, m_path.c_str(), RENAME_NOREPLACE) == 0)
            return;
        if (!common.force && errno != EINVAL) // the file system knows no such rename
            failUnforced(m_path, errno);
        requireNewFile(m_path);
        if (rename(m_name.c_str(), m_path.c_str()) != 0)
            fail(m_path, errno);
    }

private:
    std::filesystem::path m_path;
    std::string m_name;
    int m_fd;
};

// What a camera calls itself may be anything.
std::string textOf(const Json& json)
{
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + '\n';
}

// What is nested deeper would overflow the stack when it is destroyed or printed: both recurse.
bool refuseDeepJson(int depth, Json::parse_event_t, const Json&)
{
    constexpr int kMost = 16; // the tool's own files have four levels
    if (depth > kMost)
        throw Failure(kUsage, "nested more than " + std::to_string(kMost) + " levels deep");
    return true;
}

} // namespace

Output::Output()
{
    signal(SIGPIPE, SIG_IGN); // a reader that has gone is a write that fails, and no reason to leave a camera grabbing
    const int data = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    m_data = data < 0 ? nullptr : fdopen(data, "w");
    m_library = common.verbose ? dup(STDERR_FILENO) : memfd_create("library", MFD_CLOEXEC);
    if (m_data == nullptr || m_library < 0 || dup2(m_library, STDOUT_FILENO) < 0)
        throw Failure(kFailed, std::string("standard output or error: ") + strerror(errno));
    setvbuf(stdout, nullptr, _IOLBF, 0); // in step with our own messages
}

Output::~Output()
{
    fflush(stdout);
    dup2(fileno(m_data), STDOUT_FILENO);
    fclose(m_data);
    if (std::uncaught_exceptions() > 0)
        showLibraryLines();
    close(m_library);
}

void Output::showLibraryLines()
{
    if (common.verbose)
        return; // they are there
    fflush(stdout);
    char bytes[4096];
    lseek(m_library, 0, SEEK_SET);
    for (ssize_t length; (length = read(m_library, bytes, sizeof bytes)) > 0;)
        fwrite(bytes, 1, static_cast<size_t>(length), stderr);
}

void Output::print(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    vfprintf(m_data, format, arguments);
    va_end(arguments);
}

void Output::print(const Json& json)
{
    print("%s", textOf(json).c_str());
}

void Output::finish()
{
    if (fflush(m_data) != 0 || ferror(m_data))
        throw Failure(kFailed, std::string("standard output: ") + strerror(errno));
}

Json document(const std::string& command)
{
    return Json::object({{"schema", "vqd." + command + "/1"}});
}

Json readDocument(const std::string& file, const std::string& command)
{
    std::ifstream stream(file);
    if (file != "-" && !stream)
        throw Failure(kFailed, file + ": cannot be read");
    Json json;
    try {
        json = Json::parse(file == "-" ? std::cin : stream, refuseDeepJson);
    } catch (const Failure& deep) {
        throw Failure(deep.code, file + ": " + deep.what());
    } catch (const Json::exception& error) {
        throw Failure(kUsage, file + ": " + error.what());
    } catch (const std::ios_base::failure&) { // a directory
        throw Failure(kFailed, file + ": cannot be read");
    }
    if (!json.is_object() || !json.contains("schema") || json["schema"] != document(command)["schema"])
        throw Failure(kUsage, file + ": \"schema\" is not \"vqd." + command + "/1\"");
    return json;
}

void requireWritableDirectory(const std::filesystem::path& directory)
{
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error)
        fail(directory, error.value());
    const Draft probe(directory / "."); // never kept
}

void requireNewFile(const std::filesystem::path& path)
{
    std::error_code unreachable;
    const std::filesystem::file_status status = std::filesystem::status(path, unreachable);
    if (!std::filesystem::exists(status))
        return;
    if (!std::filesystem::is_regular_file(status))
        throw Failure(kFailed, path.string() + " exists and is no file");
    if (!common.force)
        failUnforced(path, EEXIST);
}

void requireWritableFile(const std::filesystem::path& path)
{
    requireNewFile(path);
    const Draft probe(path); // never kept
}

void writeFile(const std::filesystem::path& path, std::span<const uint8_t> bytes, OnDisk when)
{
    requireNewFile(path);
    Draft draft(path);
    draft.write(bytes);
    draft.keep(when);
}

void writeJson(const std::filesystem::path& path, const Json& json)
{
    const std::string text = textOf(json);
    writeFile(path, std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
}

std::vector<uint8_t> readFile(const std::filesystem::path& path, size_t size)
{
    std::ifstream stream(path, std::ios::binary);
    std::vector<uint8_t> bytes(size + 1); // one more shows a longer file
    stream.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!stream.is_open() || stream.bad())
        throw Failure(kFailed, path.string() + ": cannot be read");
    if (static_cast<size_t>(stream.gcount()) != size)
        throw Failure(kUsage, path.string() + " has not the " + std::to_string(size) + " bytes that it needs");
    bytes.resize(size);
    return bytes;
}
