// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The clock of the cameras on a bus: the wall clock from the start of the bus, or faster.
#pragma once

#include <algorithm>
#include <chrono>

#include "frame_clock.h"

namespace sim
{

class BusClock
{
public:
    using Clock = std::chrono::steady_clock;

    explicit BusClock(double scale) : m_scale(scale) {}

    TimeUs now() const
    {
        const std::chrono::duration<double, std::micro> passed = Clock::now() - m_born;
        return static_cast<TimeUs>(passed.count() * m_scale);
    }

    // An hour from now at most: long enough to look again.
    Clock::time_point when(TimeUs time) const
    {
        const double wait = static_cast<double>(time - now()) / m_scale;
        return Clock::now() + std::chrono::microseconds(static_cast<int64_t>(std::clamp(wait, 0.0, 3.6e9)));
    }

private:
    double m_scale;
    Clock::time_point m_born = Clock::now();
};

} // namespace sim
