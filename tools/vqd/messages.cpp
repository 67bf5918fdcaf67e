// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Lines with "vqd:" before them, and questions that are answered on the terminal.
#include "messages.h"

#include <cstdarg>
#include <cstdio>
#include <poll.h>
#include <unistd.h>

#include "host/failure.h"

#include "interrupt.h"
#include "options.h"
#include "progress.h"

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
        throw Failure(kUsage,
                      "this writes to the camera's memory, and without a terminal nobody can be asked: give --yes");
}

void confirm(const std::string& question)
{
    if (common.yes)
        return;
    requireConfirmable();
    fprintf(stderr, "vqd: %s [y/N] ", question.c_str());
    pollfd input{STDIN_FILENO, POLLIN, 0};
    while (poll(&input, 1, -1) < 0) // a signal interrupts it, unlike a read
        endIfInterrupted();
    char answer[16] = {};
    if (fgets(answer, sizeof answer, stdin) == nullptr || (answer[0] != 'y' && answer[0] != 'Y'))
        throw Failure(kFailed, "not confirmed, so nothing is written");
}
