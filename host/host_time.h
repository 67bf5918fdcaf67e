// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The two clocks of the host. CLOCK_REALTIME is for stamps that leave the machine, and jumps when it is set.
// CLOCK_MONOTONIC is for order, gaps and time-outs: it never jumps, is the same for all processes, and stands still
// while the machine sleeps.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

struct HostTime {
    int64_t real, monotonic; // ns
};

// Both clocks at one moment.
HostTime hostTime();

// A time of CLOCK_REALTIME, in ns, as C++ counts it.
inline std::chrono::system_clock::time_point realTimePoint(int64_t nanoseconds)
{
    using Real = std::chrono::system_clock;
    return Real::time_point(std::chrono::duration_cast<Real::duration>(std::chrono::nanoseconds(nanoseconds)));
}

// The same as "2026-11-25T10:00:00Z"; empty for a year that has no such form.
std::string utcText(int64_t nanoseconds);

// Notices that the clock of real times was set.
class ClockWatch
{
public:
    // Seconds by which it was moved since the time before; nothing when it was not, or only slewed.
    std::optional<double> step(const HostTime& time);

private:
    std::optional<HostTime> m_before;
};
