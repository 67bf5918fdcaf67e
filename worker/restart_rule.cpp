// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A pause ends early when a camera comes, because it may be the one.
#include "worker/restart_rule.h"

#include <algorithm>

std::chrono::milliseconds BackOff::next()
{
    const std::chrono::milliseconds pause = m_next;
    m_next = std::min(2 * m_next, kMost);
    return pause;
}

void RestartRule::ended(Time now, const End& end, const std::vector<Place>& attached)
{
    constexpr std::chrono::seconds kForgivenAfter{30};
    if (end.withFrames >= kForgivenAfter)
        m_backOff.forgive();
    m_notBefore = end.locked ? now : now + m_backOff.next();
    m_attached = attached;
    m_locked = end.locked;
}

bool RestartRule::mayStart(Time now, const std::vector<Place>& attached, bool (*isLocked)(const Place& place)) const
{
    const bool isThere =
        std::ranges::any_of(attached, [this](const Place& place) { return m_port.empty() || place.port == m_port; });
    const bool hasCome = std::ranges::any_of(
        attached, [this](const Place& place) { return std::ranges::find(m_attached, place) == m_attached.end(); });
    const bool mayTry = now >= m_notBefore && !(m_locked && isLocked(*m_locked));
    return isThere && (mayTry || hasCome);
}
