// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The line of progress, and its clearing for other lines.
#include "progress.h"

#include <atomic>
#include <cstdio>
#include <unistd.h>

#include "host/formatted.h"
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
    show(formatted("%s %d of %d", m_what, done, m_total));
}

void Progress::show(const std::string& text)
{
    constexpr std::chrono::seconds kBetweenLines(10);
    if (common.quiet)
        return;
    if (m_terminal) {
        fprintf(stderr, "\r%s\33[K", text.c_str());
        g_shown = true;
        return;
    }
    const auto now = std::chrono::steady_clock::now();
    if (now - m_told < kBetweenLines)
        return;
    m_told = now;
    note("%s", text.c_str());
}
