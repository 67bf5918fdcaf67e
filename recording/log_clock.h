// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The time axis of a recording. It is that of the machine's clock when the recording begins, and goes on evenly when
// somebody sets that clock: a reader finds its place by times that never go back.
#pragma once

#include <algorithm>
#include <cstdint>

#include "host/host_time.h"

class LogClock
{
public:
    // Of moments in any order; an earlier one than before counts as that one.
    uint64_t at(const HostTime& time)
    {
        m_moved += static_cast<int64_t>(m_watch.step(time).value_or(0) * 1e9);
        m_last = std::max({m_last, time.real - m_moved, int64_t{0}});
        return static_cast<uint64_t>(m_last);
    }

private:
    ClockWatch m_watch;
    int64_t m_moved = 0, m_last = 0; // ns
};
