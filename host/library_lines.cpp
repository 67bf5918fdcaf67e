// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Standard output goes to a file in memory while the lines are kept.
#include "host/library_lines.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <sys/mman.h>
#include <unistd.h>

#include "host/failure.h"

static void (*g_prepare)() = nullptr;

void beforeLibraryLines(void (*prepare)())
{
    g_prepare = prepare;
}

LibraryLines::LibraryLines()
{
    fflush(stdout);
    m_before = dup(STDOUT_FILENO);
    m_kept = memfd_create("library", MFD_CLOEXEC);
    if (m_before < 0 || m_kept < 0 || dup2(m_kept, STDOUT_FILENO) < 0)
        throw Failure(kFailed, std::string("standard output: ") + strerror(errno));
}

LibraryLines::~LibraryLines()
{
    take();
    dup2(m_before, STDOUT_FILENO);
    close(m_before);
    close(m_kept);
}

std::vector<std::string> LibraryLines::take()
{
    fflush(stdout);
    std::string text;
    char part[4096];
    lseek(m_kept, 0, SEEK_SET);
    for (ssize_t length; (length = read(m_kept, part, sizeof part)) > 0;)
        text.append(part, static_cast<size_t>(length));
    if (ftruncate(m_kept, 0) == 0)
        lseek(m_kept, 0, SEEK_SET);
    if (!text.empty() && g_prepare != nullptr)
        g_prepare();
    for (size_t done = 0; done < text.size();) {
        const ssize_t written = write(m_before, text.data() + done, text.size() - done);
        if (written <= 0 && errno != EINTR)
            break; // nobody listens
        done += static_cast<size_t>(std::max<ssize_t>(written, 0));
    }
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

int countStarting(const std::vector<std::string>& lines, const char* start)
{
    return static_cast<int>(
        std::count_if(lines.begin(), lines.end(), [&](const std::string& line) { return line.starts_with(start); }));
}
