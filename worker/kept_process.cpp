// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "worker/kept_process.h"

#include <algorithm>
#include <csignal>
#include <sys/wait.h>
#include <thread>

#include "host/failure.h"
#include "worker/worker_process.h"

KeptProcess::~KeptProcess()
{
    if (m_process == 0)
        return;
    kill(m_process, SIGKILL);
    waitpid(m_process, nullptr, 0);
}

bool KeptProcess::start(Clock::time_point now)
{
    if (m_process != 0 || now < m_notBefore)
        return false;
    m_started = now;
    try {
        m_process = startProcess(m_program, m_words);
    } catch (const Failure&) {
        m_notBefore = now + m_backOff.next();
        throw;
    }
    return true;
}

std::optional<int> KeptProcess::ended(Clock::time_point now)
{
    constexpr std::chrono::seconds kForgivenAfter{30};
    int status = 0;
    if (m_process == 0 || waitpid(m_process, &status, WNOHANG) != m_process)
        return std::nullopt;
    m_process = 0;
    if (now - m_started > kForgivenAfter)
        m_backOff.forgive();
    m_notBefore = now + m_backOff.next();
    return status;
}

void KeptProcess::askToEnd() const
{
    if (m_process != 0)
        kill(m_process, SIGTERM);
}

void endTogether(std::list<KeptProcess>& processes, std::chrono::milliseconds most)
{
    constexpr std::chrono::milliseconds kLook{5};
    for (const KeptProcess& one : processes)
        one.askToEnd();
    const auto until = KeptProcess::Clock::now() + most;
    const auto runs = [](KeptProcess& one) { return one.process() != 0 && !one.ended(KeptProcess::Clock::now()); };
    while (std::ranges::any_of(processes, runs) && KeptProcess::Clock::now() < until)
        std::this_thread::sleep_for(kLook);
}
