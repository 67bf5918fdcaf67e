// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The same program again, as "vqd worker".
#include "worker_processes.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "host/failure.h"

#include "options.h"

namespace
{

using namespace std::chrono_literals;

// What a worker needs in the worst case is 3 s.
constexpr auto kMostSecondsToEnd = 5s;

// In the new process, where only what signal handlers may do is allowed.
[[noreturn]] void become(char* const* words, pid_t parent, const sigset_t& signals)
{
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        signal(number, SIG_DFL); // the command's handlers would swallow what comes before the worker has its own
    sigprocmask(SIG_SETMASK, &signals, nullptr);
    setpgid(0, 0); // Ctrl-C is for the command, which ends its workers when its files are complete
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() == parent)
        execv("/proc/self/exe", words);
    _exit(kFailed);
}

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

void WorkerProcesses::start(const std::string& port, const std::vector<std::string>& settings,
                            const std::vector<std::string>& options)
{
    std::vector<std::string> words{"vqd", "worker", "-q", "-c", port};
    if (common.noProfile)
        words.emplace_back("--no-profile");
    words.insert(words.end(), options.begin(), options.end());
    for (const std::string& setting : settings)
        words.insert(words.end(), {"-s", setting});
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const pid_t parent = getpid();
    sigset_t all, before;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, &before);
    const pid_t process = fork();
    if (process == 0)
        become(arguments.data(), parent, before);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    if (process < 0)
        throw Failure(kFailed, std::string("a worker does not start: ") + strerror(errno));
    m_processes.push_back(process);
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
