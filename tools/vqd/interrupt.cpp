// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The first signal sets a flag, which the work looks at between its steps.
#include "interrupt.h"

#include <csignal>
#include <unistd.h>

#include "host/failure.h"

static volatile std::sig_atomic_t g_interrupted = 0;

static void (*volatile g_last)() = nullptr;

static void onSignal(int)
{
    if (g_interrupted) {
        if (g_last != nullptr)
            g_last();
        _exit(kInterrupted);
    }
    g_interrupted = 1;
}

void onForcedEnd(void (*last)())
{
    g_last = last;
}

void catchInterrupts()
{
    struct sigaction action {
    };
    action.sa_handler = onSignal;
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    struct sigaction present {
    };
    sigaction(SIGHUP, nullptr, &present);
    if (present.sa_handler != SIG_IGN) // otherwise nohup wants the command to outlive its terminal
        sigaction(SIGHUP, &action, nullptr);
}

bool interrupted()
{
    return g_interrupted != 0;
}

void endIfInterrupted()
{
    if (g_interrupted)
        throw Failure(kInterrupted, "interrupted, nothing saved");
}
