// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What the commands have in common on the command line, and how they speak to people on standard error.
#pragma once

#include <chrono>
#include <string>

namespace CLI
{
class App;
}

struct Common {
    std::string camera;   // index, serial number or BUS-ADDRESS; empty: not chosen
    bool json = false;    // one JSON object instead of lines
    bool force = false;   // replace files
    bool yes = false;     // do not ask
    bool quiet = false;   // nothing but failures
    bool verbose = false; // steps, too
};

// One command runs in a process, with what its command line said.
extern Common common;

// Adds the wanted options, and always -q and -v.
enum CommonOption { kCamera = 1, kJson = 2, kForce = 4, kYes = 8 };
void addCommon(CLI::App& command, int options);

// A line on standard error: not with -q; only with -v.
void note(const char* format, ...) __attribute__((format(printf, 1, 2)));
void detail(const char* format, ...) __attribute__((format(printf, 1, 2)));

// To be called first by what needs a yes: fails where nobody can be asked and --yes is missing.
void requireConfirmable();

// Asks on the terminal, unless --yes; fails when the answer is no.
void confirm(const std::string& question);

// Makes room for a line where progress is shown.
void clearProgress();

// How far a command is: on a terminal a line that follows, else a line every 10 s.
class Progress
{
public:
    explicit Progress(const char* what, int total);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void show(int done);

private:
    const char* m_what;
    int m_total;
    bool m_terminal;
    std::chrono::steady_clock::time_point m_told;
};
