// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Frame numbers from elapsed time; all sums saturate, so that no clock reading can overflow them.
#include "frame_clock.h"

#include <algorithm>

namespace sim
{

static uint64_t elapsed(TimeUs from, TimeUs to)
{
    return to <= from ? 0 : static_cast<uint64_t>(to) - static_cast<uint64_t>(from);
}

TimeUs addTime(TimeUs time, TimeUs more)
{
    return time > kNever - more ? kNever : time + more;
}

// The moment at which `frames` frames, counted from 0, are complete.
TimeUs FrameClock::completionOf(uint64_t frames) const
{
    if (m_period == 0 || frames <= m_base)
        return m_start;
    const uint64_t periods = frames - m_base;
    if (periods > static_cast<uint64_t>(kNever / m_period))
        return kNever;
    return addTime(m_start, static_cast<TimeUs>(periods) * m_period);
}

uint64_t FrameClock::completeBy(TimeUs now) const
{
    if (!m_running)
        return m_next;
    if (m_period == 0)
        return m_next + 1;
    return m_base + elapsed(m_start, now) / static_cast<uint64_t>(m_period);
}

void FrameClock::rebase(TimeUs now)
{
    const uint64_t complete = m_period == 0 ? m_next : completeBy(now);
    m_start = m_period == 0 ? now : completionOf(complete);
    m_base = complete;
}

void FrameClock::start(TimeUs now, TimeUs period)
{
    m_running = true;
    m_start = now;
    m_period = period;
}

void FrameClock::stop(TimeUs now)
{
    if (!m_running)
        return;
    rebase(now);
    m_next = m_base;
    m_running = false;
}

void FrameClock::setPeriod(TimeUs now, TimeUs period)
{
    if (!m_running || period == m_period)
        return;
    rebase(now);
    m_period = period;
}

std::optional<FrameClock::Exposure> FrameClock::take(TimeUs now)
{
    const uint64_t complete = completeBy(now);
    if (complete <= m_next)
        return std::nullopt;
    m_next = complete;
    return Exposure{complete - 1, m_period == 0 ? now : completionOf(complete)};
}

void FrameClock::skip(TimeUs now)
{
    if (m_period != 0)
        m_next = std::max(m_next, completeBy(now));
}

TimeUs FrameClock::nextFrame(TimeUs now) const
{
    if (!m_running)
        return kNever;
    return completeBy(now) > m_next ? now : completionOf(m_next + 1);
}

} // namespace sim
