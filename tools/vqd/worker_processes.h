// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Workers, and what publishes their frames, that a command starts for itself.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

class WorkerProcesses
{
public:
    WorkerProcesses() = default;
    ~WorkerProcesses(); // ends them, within some seconds
    WorkerProcesses(const WorkerProcesses&) = delete;
    WorkerProcesses& operator=(const WorkerProcesses&) = delete;

    // Starts a worker for the camera of this port or serial number. It also ends when this process does, whichever way.
    void start(const std::string& camera, const std::vector<std::string>& settings,
               const std::vector<std::string>& options); // more words of vqd worker

    // False when one has ended by itself; it has said why.
    bool allRun() const;

    // Fails when one has.
    void requireRunning() const;

private:
    std::vector<pid_t> m_processes;
};

// A program that is started again, 1 s after it has ended by itself.
class KeptProcess
{
public:
    KeptProcess(std::string program, std::vector<std::string> words);
    ~KeptProcess(); // ends it, within some seconds
    KeptProcess(KeptProcess&& other) noexcept;
    KeptProcess& operator=(KeptProcess&&) = delete;

    // To be called again and again. Fails when the program has refused its options or the environment, which it has
    // said itself.
    void keep();

private:
    using Clock = std::chrono::steady_clock;

    std::string m_program;
    std::vector<std::string> m_words;
    pid_t m_process = 0; // 0 while there is none
    Clock::time_point m_next{};
};
