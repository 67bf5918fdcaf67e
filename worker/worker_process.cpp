// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "worker/worker_process.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/prctl.h>
#include <unistd.h>
#include <utility>

#include "host/failure.h"

namespace
{

// In the new process, where only what signal handlers may do is allowed.
[[noreturn]] void become(const char* program, char* const* words, pid_t parent)
{
    sigset_t none;
    sigemptyset(&none);
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        signal(number, SIG_DFL); // the command's handlers would swallow what comes before the worker has its own
    sigprocmask(SIG_SETMASK, &none, nullptr);
    setpgid(0, 0); // Ctrl-C is for the command, which ends its workers when it is ready for that
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() == parent)
        execv(program, words);
    _exit(kFailed);
}

} // namespace

std::vector<std::string> workerWords(const std::vector<std::string>& options)
{
    std::vector<std::string> words{"vqd", "worker"};
    words.insert(words.end(), options.begin(), options.end());
    return words;
}

pid_t startProcess(const std::string& program, std::vector<std::string> words)
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
        become(program.c_str(), arguments.data(), parent);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    if (process < 0)
        throw Failure(kFailed, words[0] + " does not start: " + strerror(errno));
    return process;
}
