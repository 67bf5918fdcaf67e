// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "serve/own_worker.h"

#include <csignal>
#include <sys/wait.h>

#include "worker/worker_process.h"

OwnWorker::~OwnWorker()
{
    if (m_process == 0)
        return;
    kill(m_process, SIGKILL);
    waitpid(m_process, nullptr, 0);
}

bool OwnWorker::start(Clock::time_point now)
{
    if (m_process != 0 || now < m_notBefore)
        return false;
    m_started = now;
    m_notBefore = now + m_backOff.next(); // also when it does not start
    m_process = startWorker(m_options);
    return true;
}

bool OwnWorker::hasEnded(Clock::time_point now)
{
    constexpr std::chrono::seconds kForgivenAfter{30};
    if (m_process == 0 || waitpid(m_process, nullptr, WNOHANG) != m_process)
        return false;
    m_process = 0;
    if (now - m_started > kForgivenAfter)
        m_backOff.forgive();
    m_notBefore = now + m_backOff.next();
    return true;
}

void OwnWorker::askToEnd() const
{
    if (m_process != 0)
        kill(m_process, SIGTERM);
}
