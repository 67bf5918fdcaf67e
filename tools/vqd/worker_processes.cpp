// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The same program again, as "vqd worker", and others that belong to it.
#include "worker_processes.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "host/failure.h"

#include "options.h"

namespace
{

using namespace std::chrono_literals;

// What a worker needs in the worst case is 3 s.
constexpr auto kMostSecondsToEnd = 5s;

// In the new process, where only what signal handlers may do is allowed.
[[noreturn]] void become(const char* program, char* const* words, pid_t parent, const sigset_t& signals)
{
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        signal(number, SIG_DFL); // the command's handlers would swallow what comes before the worker has its own
    sigprocmask(SIG_SETMASK, &signals, nullptr);
    setpgid(0, 0); // Ctrl-C is for the command, which ends its workers when its files are complete
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() == parent)
        execv(program, words);
    _exit(kFailed);
}

pid_t started(const char* program, std::vector<std::string> words)
{
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
        become(program, arguments.data(), parent, before);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    if (process < 0)
        throw Failure(kFailed, "a process does not start: " + std::string(strerror(errno)));
    return process;
}

bool hasEnded(pid_t process)
{
    return waitpid(process, nullptr, WNOHANG) == process;
}

void endAll(const std::vector<pid_t>& processes)
{
    for (const pid_t process : processes)
        kill(process, SIGTERM);
    const auto limit = std::chrono::steady_clock::now() + kMostSecondsToEnd;
    for (const pid_t process : processes) {
        bool ended = hasEnded(process);
        for (; !ended && std::chrono::steady_clock::now() < limit; ended = hasEnded(process))
            std::this_thread::sleep_for(5ms);
        if (ended)
            continue;
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
    }
}

} // namespace

WorkerProcesses::~WorkerProcesses()
{
    endAll(m_processes);
}

void WorkerProcesses::start(const std::string& camera, const std::vector<std::string>& settings)
{
    std::vector<std::string> words{"vqd", "worker", "-q", "-c", camera};
    if (common.noProfile)
        words.emplace_back("--no-profile");
    for (const std::string& setting : settings)
        words.insert(words.end(), {"-s", setting});
    m_processes.push_back(started("/proc/self/exe", std::move(words)));
}

void WorkerProcesses::requireRunning() const
{
    for (const pid_t process : m_processes) {
        siginfo_t info{};
        if (waitid(P_PID, static_cast<id_t>(process), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
            info.si_pid == process)
            throw Failure(kFailed, "a worker has ended by itself");
    }
}

KeptProcess::KeptProcess(std::string program, std::vector<std::string> words)
    : m_program(std::move(program)), m_words(std::move(words))
{
}

KeptProcess::KeptProcess(KeptProcess&& other) noexcept
    : m_program(std::move(other.m_program)), m_words(std::move(other.m_words)),
      m_process(std::exchange(other.m_process, 0)), m_next(other.m_next)
{
}

KeptProcess::~KeptProcess()
{
    if (m_process != 0)
        endAll({m_process});
}

void KeptProcess::keep()
{
    int status = 0;
    if (m_process != 0 && waitpid(m_process, &status, WNOHANG) == m_process) {
        m_process = 0;
        m_next = Clock::now() + 1s;
        if (WIFEXITED(status) && (WEXITSTATUS(status) == kUsage))
            throw Failure(kUsage, m_words[0] + " does not start");
    }
    if (m_process == 0 && Clock::now() >= m_next)
        m_process = started(m_program.c_str(), m_words);
}
