// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Descriptor 1 goes elsewhere for the library; the tool's data go to a copy of what it was.
#include "output.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "host/failure.h"

#include "options.h"

Output::Output()
{
    signal(SIGPIPE, SIG_IGN); // when the reader is gone, a write fails; the signal would leave a camera grabbing
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
        return; // they have been printed
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
    print("%s", documentText(json).c_str());
}

void Output::write(std::span<const uint8_t> bytes)
{
    fwrite(bytes.data(), 1, bytes.size(), m_data);
}

void Output::finish()
{
    if (fflush(m_data) != 0 || ferror(m_data))
        throw Failure(kFailed, std::string("standard output: ") + strerror(errno));
}

void Output::finish(const Json& json, const std::string& text)
{
    print("%s", common.json ? documentText(json).c_str() : text.c_str());
    finish();
}
