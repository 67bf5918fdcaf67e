// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// How far a command is.
#pragma once

#include <chrono>
#include <string>

// On a terminal one line that changes, elsewhere a line every 10 s.
class Progress
{
public:
    explicit Progress(const char* what = "", int total = 0);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void show(int done);
    void show(const std::string& text);

private:
    const char* m_what;
    int m_total;
    bool m_terminal;
    std::chrono::steady_clock::time_point m_told;
};

// Clears the line on the terminal, so that another can be printed.
void clearProgress();
