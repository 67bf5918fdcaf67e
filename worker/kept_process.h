// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A program that its owner keeps running: a worker, or one that reads from a worker.
#pragma once

#include <chrono>
#include <list>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "worker/restart_rule.h"

class KeptProcess
{
public:
    using Clock = std::chrono::steady_clock;

    KeptProcess(std::string program, std::vector<std::string> words) // all of its command line
        : m_program(std::move(program)), m_words(std::move(words))
    {
    }
    ~KeptProcess(); // kills it, if it still runs
    KeptProcess(const KeptProcess&) = delete;
    KeptProcess& operator=(const KeptProcess&) = delete;

    pid_t process() const { return m_process; } // 0 while there is none

    // Starts it, unless it runs or ended just now. Returns whether it did. Fails when it does not start.
    bool start(Clock::time_point now);

    // How it has ended since the last time, as waitpid() tells; nothing when it has not.
    std::optional<int> ended(Clock::time_point now);

    void askToEnd() const;

private:
    const std::string m_program;
    const std::vector<std::string> m_words;
    pid_t m_process = 0;
    BackOff m_backOff;
    Clock::time_point m_started{}, m_notBefore{};
};

// Asks all of them to end, and waits for that, but no longer than this. What then still runs is killed with its object.
void endTogether(std::list<KeptProcess>& processes, std::chrono::milliseconds most);
