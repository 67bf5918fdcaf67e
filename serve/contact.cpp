// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The state comes from the supervisor's own socket. The camera's process, at the other end of the connection, does not
// know how often it was started, or that it is silent.
#include "serve/contact.h"

#include "host/documents.h"

namespace
{

using namespace std::chrono_literals;

constexpr auto kConnectPeriod = 100ms;
constexpr auto kStatePeriod = 200ms;
constexpr auto kStatePatience = 1s;
constexpr auto kReplyPatience = 15s; // a camera that is being opened again answers after some 10 s

} // namespace

void Contact::follow(const std::filesystem::path& socket, const std::filesystem::path& status)
{
    if (socket == m_socket && status == m_status)
        return;
    m_socket = socket;
    m_status = status;
    m_state.reset();
    m_nextConnect = m_asked = m_lastState = {};
    lose();
}

bool Contact::isAnswering(Clock::time_point now) const
{
    return now - m_lastState < kStatePatience;
}

void Contact::pull(uint64_t after)
{
    onLink([&] { m_link->pull(after); });
}

void Contact::request(const Json& request, Clock::time_point now, Replied replied)
{
    if (!m_link) {
        replied(nullptr);
        return;
    }
    const uint32_t number = m_lastNumber = m_lastNumber % UINT32_MAX + 1;
    m_pending[number] = {now + kReplyPatience, std::move(replied)};
    onLink([&] { m_link->request(number, request); });
}

void Contact::addTo(std::vector<pollfd>& waiting) const
{
    if (m_link)
        waiting.push_back(m_link->waiting());
    if (m_state)
        waiting.push_back(m_state->waiting());
}

void Contact::serve(Clock::time_point now)
{
    if (!m_link && !m_socket.empty() && now >= m_nextConnect) {
        m_nextConnect = now + kConnectPeriod;
        connect();
    }
    onLink([this] { m_link->serve([this](const Received& message) { hear(message); }); });
    if (m_isBroken)
        lose();
    readState(now);
    giveUp(now);
}

void Contact::connect()
{
    std::optional<Descriptor> connection = connectTo(m_socket);
    if (!connection)
        return;
    m_link.emplace(std::move(*connection));
    m_hooks.connected();
}

void Contact::readState(Clock::time_point now)
{
    const bool waits = m_state && now - m_asked < kStatePatience;
    if (!m_status.empty() && !waits && now - m_asked >= kStatePeriod) {
        m_asked = now;
        if (std::optional<Descriptor> connection = connectTo(m_status))
            m_state.emplace(std::move(*connection));
    }
    if (!m_state)
        return;
    try {
        const std::optional<std::string> text = m_state->take();
        if (!text)
            return;
        m_state.reset();
        m_hooks.state(parsedObject(*text, "the worker's state"));
        m_lastState = now;
    } catch (const std::exception&) { // it was asked while it ended, or is no worker of ours
        m_state.reset();
    }
}

void Contact::hear(const Received& message)
{
    if (message.prefix.kind != VQD_WIRE_REPLY) {
        m_hooks.message(message);
        return;
    }
    const auto pending = m_pending.find(message.prefix.request);
    if (pending == m_pending.end())
        return;
    const Json reply = parsedObject(message.text(), "the worker's reply");
    const Replied replied = std::move(pending->second.replied);
    m_pending.erase(pending);
    replied(reply);
}

void Contact::lose()
{
    m_isBroken = false;
    if (!m_link)
        return;
    m_link.reset();
    m_hooks.disconnected();
    for (const auto& [number, pending] : std::exchange(m_pending, {}))
        pending.replied(nullptr);
}

// What goes wrong with a worker ends the connection to it, and nothing else. It ends later, since it may be at work
// just now.
template <typename Work> void Contact::onLink(const Work& work)
{
    if (!m_link || m_isBroken)
        return;
    try {
        work();
    } catch (const std::exception&) {
        m_isBroken = true;
    }
}

void Contact::giveUp(Clock::time_point now)
{
    for (auto pending = m_pending.begin(); pending != m_pending.end();) {
        if (pending->second.until > now) {
            ++pending;
            continue;
        }
        const Replied replied = std::move(pending->second.replied);
        pending = m_pending.erase(pending);
        replied(nullptr);
    }
}
