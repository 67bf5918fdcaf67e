// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// See sim_program.h. A program starts with the signals as they were before.
#include "sim_program.h"

#include <cerrno>
#include <cstring>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "commands.h"
#include "host/failure.h"

Signals::Signals()
{
    sigemptyset(&m_set);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGCHLD})
        sigaddset(&m_set, number);
    signal(SIGCHLD, SIG_DFL);
    sigprocmask(SIG_BLOCK, &m_set, &m_before);
}

pid_t Signals::start(const std::vector<std::string>& program) const
{
    std::vector<char*> arguments;
    for (const std::string& argument : program)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    posix_spawnattr_setsigmask(&attributes, &m_before);
    pid_t child = 0;
    const int error = posix_spawnp(&child, arguments[0], nullptr, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    if (error != 0)
        throw Failure(error == ENOENT ? kNoProgram : kCannotRun, program[0] + ": " + strerror(error));
    return child;
}

int Signals::wait(pid_t child) const
{
    for (;;) {
        siginfo_t info{};
        const int number = sigwaitinfo(&m_set, &info);
        int status = 0;
        if (number == SIGCHLD && waitpid(child, &status, WNOHANG) == child)
            return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
        // The terminal sends its signals to the child as well.
        if (number > 0 && number != SIGCHLD && info.si_code != SI_KERNEL)
            kill(child, number);
    }
}

void Signals::waitForEnd() const
{
    int number = 0;
    while (sigwait(&m_set, &number) != 0 || number == SIGCHLD) {
    }
}
