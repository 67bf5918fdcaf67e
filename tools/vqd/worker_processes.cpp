// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "worker_processes.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <sys/wait.h>
#include <thread>

#include "host/failure.h"
#include "worker/worker_process.h"

#include "options.h"

namespace
{

using namespace std::chrono_literals;

// What a worker needs in the worst case is 3 s.
constexpr auto kMostSecondsToEnd = 5s;

bool hasEnded(pid_t process)
{
    return waitpid(process, nullptr, WNOHANG) == process;
}

} // namespace

WorkerProcesses::~WorkerProcesses()
{
    for (const pid_t process : m_processes)
        kill(process, SIGTERM);
    const auto limit = std::chrono::steady_clock::now() + kMostSecondsToEnd;
    for (const pid_t process : m_processes) {
        bool ended = hasEnded(process);
        for (; !ended && std::chrono::steady_clock::now() < limit; ended = hasEnded(process))
            std::this_thread::sleep_for(5ms);
        if (ended)
            continue;
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
    }
}

void WorkerProcesses::start(const std::string& camera, const std::vector<std::string>& settings,
                            const std::vector<std::string>& options)
{
    std::vector<std::string> words{"-q", "-c", camera};
    if (common.noProfile)
        words.emplace_back("--no-profile");
    words.insert(words.end(), options.begin(), options.end());
    for (const std::string& setting : settings)
        words.insert(words.end(), {"-s", setting});
    m_processes.push_back(startProcess(kThisProgram, workerWords(words)));
}

bool WorkerProcesses::allRun() const
{
    return std::ranges::all_of(m_processes, [](pid_t process) {
        siginfo_t info{};
        return waitid(P_PID, static_cast<id_t>(process), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
               info.si_pid != process;
    });
}

void WorkerProcesses::requireRunning() const
{
    if (!allRun())
        throw Failure(kFailed, "a worker has ended by itself");
}
