// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What is to be sent to one reader, and in which order. Small messages wait in a queue; frames do not: a reader gets
// the newest one when it is ready for it.
#pragma once

#include <deque>
#include <functional>
#include <optional>

#include "worker/messages.h"

// The newest frame of a session, once for all readers. `packed` is asked at most once a frame, and only when a reader
// wants it.
class LatestFrame
{
public:
    using Packer = std::function<Body(const Body& frame)>;

    explicit LatestFrame(Packer packer) : m_packer(std::move(packer)) {}

    void set(uint64_t sequence, Body frame);
    uint64_t sequence() const { return m_sequence; } // 0 before the first
    Body body(bool packed);

private:
    const Packer m_packer;
    uint64_t m_sequence = 0;
    Body m_plain, m_packed;
};

class Outbox
{
public:
    // False, and not added, when as many wait as a reader that still reads would never leave.
    bool add(Message message);

    // Asks for a frame, in place of what an earlier pull asked for and did not get yet.
    void pull(uint32_t request, const vqd_wire_pull& pull) { m_pull = {request, pull}; }

    // The message to send next, if there is one.
    std::optional<Message> next(LatestFrame& latest);

private:
    static constexpr size_t kMostWaiting = 64;

    struct Pull {
        uint32_t request;
        vqd_wire_pull wanted;
    };
    std::deque<Message> m_waiting;
    std::optional<Pull> m_pull;
};
