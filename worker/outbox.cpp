// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Small messages go first, so that parameters arrive before the frame that was read with them.
#include "worker/outbox.h"

void LatestFrame::set(uint64_t sequence, Body frame)
{
    m_sequence = sequence;
    m_plain = std::move(frame);
    m_packed.reset();
}

Body LatestFrame::body(bool packed)
{
    if (!packed)
        return m_plain;
    if (!m_packed)
        m_packed = m_packer(m_plain);
    return m_packed;
}

bool Outbox::add(Message message)
{
    if (m_waiting.size() == kMostWaiting)
        return false;
    m_waiting.push_back(std::move(message));
    return true;
}

std::optional<Message> Outbox::next(LatestFrame& latest)
{
    if (!m_waiting.empty()) {
        const Message message = std::move(m_waiting.front());
        m_waiting.pop_front();
        return message;
    }
    if (!m_pull || latest.sequence() <= m_pull->wanted.after)
        return std::nullopt;
    const Pull pull = *m_pull;
    m_pull.reset();
    return messageOf(VQD_WIRE_FRAME, latest.body((pull.wanted.flags & VQD_WIRE_PACKED) != 0), pull.request);
}
