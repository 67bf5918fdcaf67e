// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// One camera's ROS 2 topics: the program that publishes them is kept running.
#pragma once

#include <functional>

#include "host/json.h"
#include "serve/configuration.h"
#include "worker/kept_process.h"

class Publisher
{
public:
    using Clock = KeptProcess::Clock;

    Publisher(PublishWish wish, std::function<void(const std::string& sentence)> say)
        : m_wish(std::move(wish)), m_say(std::move(say))
    {
    }

    // `socket` is that of the worker; empty while nobody answers there. A program that runs then waits for it by
    // itself.
    void serve(const std::string& socket, Clock::time_point now);

    // As in the state of the camera that has this serial number; null when nothing is to be published.
    Json state(const std::string& serial) const;

    void askToEnd() const;
    bool hasEnded(Clock::time_point now);

private:
    void fail(const std::string& why);

    const PublishWish m_wish;
    const std::function<void(const std::string& sentence)> m_say;
    std::string m_socket, m_trouble;
    std::optional<KeptProcess> m_process; // for m_socket
    uint64_t m_starts = 0;
};
