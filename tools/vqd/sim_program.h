// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The program that vqd sim runs, and the signals that end both.
#pragma once

#include <csignal>
#include <string>
#include <sys/types.h>
#include <vector>

// The signals that end a process, and the one that says that a child has ended, are kept back from here on, and waited
// for one by one.
class Signals
{
public:
    Signals();

    pid_t start(const std::vector<std::string>& program) const;

    // Passes signals on until the child ends. Returns the exit code that a shell would give it.
    int wait(pid_t child) const;

    // Returns when a signal asks this process to end.
    void waitForEnd() const;

private:
    sigset_t m_set, m_before;
};
