// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// See common.h.
#include "common.h"

#include <cstdarg>
#include <cstdio>
#include <poll.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include "host/failure.h"
#include "interrupt.h"

Common common;

void addCommon(CLI::App& command, int options)
{
    if (options & kCamera)
        command
            .add_option("-c,--camera", common.camera,
                        "Index, serial number, port or BUS:ADDRESS, as vqd list shows them")
            ->type_name("CAMERA")
            ->each([](const std::string& name) {
                if (name.empty()) // a variable of a script that is not set is no choice
                    throw CLI::ValidationError("--camera", "it is empty");
            });
    if (options & kJson)
        command.add_flag("--json", common.json, "One JSON object on standard output");
    if (options & kForce)
        command.add_flag("--force", common.force, "Replace existing files");
    if (options & kYes)
        command.add_flag("-y,--yes", common.yes, "Do not ask before writing to the camera's memory");
    CLI::Option* quiet =
        command.add_flag("-q,--quiet", common.quiet, "Nothing on standard error but warnings and failures");
    command.add_flag("-v,--verbose", common.verbose, "More about each step on standard error")->excludes(quiet);
}

// CLI11 names the words that it does not expect from the last to the first.
std::string usageMessage(const CLI::App* app, const CLI::Error& error)
{
    std::string text = error.what();
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::ExtrasError)) {
        text = "not expected:";
        for (const std::string& word : app->remaining(true))
            text += ' ' + word;
    }
    return text + "\nRun with --help for more information.\n";
}

static bool g_progressShown = false; // on the terminal's present line

void clearProgress()
{
    if (g_progressShown)
        fputs("\r\33[K", stderr);
    g_progressShown = false;
}

static void say(const char* what, const char* format, va_list arguments)
{
    clearProgress();
    fprintf(stderr, "vqd: %s", what);
    vfprintf(stderr, format, arguments);
    fputc('\n', stderr);
}

void warn(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    say("warning: ", format, arguments);
    va_end(arguments);
}

void note(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    if (!common.quiet)
        say("", format, arguments);
    va_end(arguments);
}

void detail(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    if (common.verbose)
        say("", format, arguments);
    va_end(arguments);
}

void requireConfirmable()
{
    if (!common.yes && !(isatty(STDIN_FILENO) && isatty(STDERR_FILENO)))
        throw Failure(kUsage, "this writes to the camera's memory and there is no terminal to ask on: give --yes");
}

void confirm(const std::string& question)
{
    if (common.yes)
        return;
    requireConfirmable();
    fprintf(stderr, "vqd: %s [y/N] ", question.c_str());
    pollfd input{STDIN_FILENO, POLLIN, 0};
    while (poll(&input, 1, -1) < 0) // a signal ends it, unlike a read
        endIfInterrupted();
    char answer[16] = {};
    if (fgets(answer, sizeof answer, stdin) == nullptr || (answer[0] != 'y' && answer[0] != 'Y'))
        throw Failure(kFailed, "not confirmed, nothing written");
}

Progress::Progress(const char* what, int total)
    : m_what(what), m_total(total), m_terminal(isatty(STDERR_FILENO)), m_told(std::chrono::steady_clock::now())
{
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
    if (m_terminal) {
        fprintf(stderr, "\r%s %d of %d", m_what, done, m_total);
        g_progressShown = true;
        return;
    }
    const auto now = std::chrono::steady_clock::now();
    if (now - m_told < kBetweenLines)
        return;
    m_told = now;
    note("%s %d of %d", m_what, done, m_total);
}
