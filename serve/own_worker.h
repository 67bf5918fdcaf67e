// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A worker that the server keeps running.
#pragma once

#include <chrono>
#include <string>
#include <sys/types.h>
#include <vector>

#include "worker/restart_rule.h"

class OwnWorker
{
public:
    using Clock = std::chrono::steady_clock;

    explicit OwnWorker(std::vector<std::string> options) : m_options(std::move(options)) {}
    ~OwnWorker(); // kills it, if it still runs
    OwnWorker(const OwnWorker&) = delete;
    OwnWorker& operator=(const OwnWorker&) = delete;

    pid_t process() const { return m_process; } // 0 while there is none

    // Starts it, unless it runs or ended just now. Returns whether it did. Fails when it does not start.
    bool start(Clock::time_point now);

    // Whether it has ended since the last time.
    bool hasEnded(Clock::time_point now);

    void askToEnd() const;

private:
    const std::vector<std::string> m_options;
    pid_t m_process = 0;
    BackOff m_backOff;
    Clock::time_point m_started{}, m_notBefore{};
};
