// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The line of progress, and its clearing for other lines.
#include "progress.h"

#include <atomic>
#include <cstdio>
#include <string>
#include <unistd.h>

#include "host/library_lines.h"

#include "messages.h"
#include "options.h"

static std::atomic<bool> g_shown = false; // on the terminal's present line

void clearProgress()
{
    if (g_shown.exchange(false))
        fputs("\r\33[K", stderr);
}

Progress::Progress(const char* what, int total)
    : m_what(what), m_total(total), m_terminal(isatty(STDERR_FILENO)), m_told(std::chrono::steady_clock::now())
{
    beforeLibraryLines(clearProgress);
}

Progress::~Progress()
{
    clearProgress();
}

void Progress::show(int done)
{
    constexpr std::chrono::seconds kBetweenLines(10);
    if (common.quiet)
        return;
    const std::string ofTotal = m_total > 0 ? " of " + std::to_string(m_total) : "";
    if (m_terminal) {
        fprintf(stderr, "\r%s %d%s", m_what, done, ofTotal.c_str());
        g_shown = true;
        return;
    }
    const auto now = std::chrono::steady_clock::now();
    if (now - m_told < kBetweenLines)
        return;
    m_told = now;
    note("%s %d%s", m_what, done, ofTotal.c_str());
}
