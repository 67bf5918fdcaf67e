// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "serve/publisher.h"

#include <sys/wait.h>

#include "host/failure.h"
#include "host/topic_name.h"

namespace
{

std::string howItEnded(int status)
{
    if (WIFSIGNALED(status))
        return "vqd-ros was ended by signal " + std::to_string(WTERMSIG(status));
    if (WEXITSTATUS(status) == kUsage)
        return "vqd-ros refuses its options or its environment, and has said why";
    return "vqd-ros has ended with code " + std::to_string(WEXITSTATUS(status));
}

} // namespace

void Publisher::serve(const std::string& socket, Clock::time_point now)
{
    if (!m_wish.wanted)
        return;
    if (const auto status = m_process ? m_process->ended(now) : std::nullopt; status && m_socket == socket)
        fail(howItEnded(*status));
    const bool runs = m_process && m_process->process() != 0;
    if (socket.empty() || (runs && m_socket == socket))
        return;
    if (runs) { // for a worker that has gone
        m_process->askToEnd();
        return;
    }
    if (m_socket != socket)
        m_process.reset();
    try {
        const std::string program = publisherProgram();
        m_socket = socket;
        if (!m_process)
            m_process.emplace(program, publisherWords(socket, m_wish.how));
        if (m_process->start(now)) {
            ++m_starts;
            m_trouble.clear();
        }
    } catch (const std::exception& failure) {
        fail(failure.what());
    }
}

void Publisher::fail(const std::string& why)
{
    if (m_trouble != why)
        m_say(why);
    m_trouble = why;
}

Json Publisher::state(const std::string& serial) const
{
    if (!m_wish.wanted)
        return nullptr;
    const pid_t process = m_process ? m_process->process() : 0;
    const std::string& name = m_wish.how.name;
    const bool isNamed = !name.empty() || !serial.empty();
    return {{"state", process != 0        ? "running"
                      : m_trouble.empty() ? "waiting"
                                          : "restarting"},
            {"topics", isNamed ? Json('/' + (name.empty() ? usualTopicName(serial) : name)) : Json()},
            {"process", process != 0 ? Json(process) : Json()},
            {"restarts", m_starts > 0 ? m_starts - 1 : 0},
            {"error", m_trouble.empty() ? Json() : Json(m_trouble)}};
}

void Publisher::askToEnd() const
{
    if (m_process)
        m_process->askToEnd();
}

bool Publisher::hasEnded(Clock::time_point now)
{
    return !m_process || m_process->process() == 0 || m_process->ended(now).has_value();
}
