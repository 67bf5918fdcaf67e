// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What the server has to do with one worker: a connection to its socket, again whenever that has ended; its state,
// several times a second; and requests with their replies.
#pragma once

#include <chrono>
#include <map>
#include <optional>

#include "serve/text_reader.h"
#include "serve/worker_link.h"

class Contact
{
public:
    using Clock = std::chrono::steady_clock;
    struct Hooks {
        std::function<void()> connected, disconnected;
        std::function<void(const Received& message)> message; // but replies
        std::function<void(const Json& state)> state;         // schema vqd.worker/1
    };
    using Replied = std::function<void(const Json& reply)>; // null when none came

    explicit Contact(Hooks hooks) : m_hooks(std::move(hooks)) {}

    // Where the worker is; empty paths when it is not there.
    void follow(const std::filesystem::path& socket, const std::filesystem::path& status);

    const std::filesystem::path& socket() const { return m_socket; }
    bool isConnected() const { return m_link.has_value(); }
    bool isAnswering(Clock::time_point now) const; // its state came not long ago

    void pull(uint64_t after);
    void request(const Json& request, Clock::time_point now, Replied replied);

    void addTo(std::vector<pollfd>& waiting) const;
    void serve(Clock::time_point now);

private:
    struct Pending {
        Clock::time_point until;
        Replied replied;
    };

    void connect();
    void readState(Clock::time_point now);
    void hear(const Received& message);
    void lose();
    template <typename Work> void onLink(const Work& work);
    void giveUp(Clock::time_point now);

    const Hooks m_hooks;
    std::filesystem::path m_socket, m_status;
    std::optional<WorkerLink> m_link;
    std::optional<TextReader> m_state;
    Clock::time_point m_nextConnect{}, m_asked{}, m_lastState{}; // the last two: for the state, and when it came
    bool m_isBroken = false;                                     // the link
    uint32_t m_lastNumber = 0;
    std::map<uint32_t, Pending> m_pending;
};
