// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The difference between the clocks tells whether one of them was set.
#include "host/host_time.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>

static int64_t nanoseconds(clockid_t clock)
{
    timespec time{};
    clock_gettime(clock, &time);
    return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

HostTime hostTime()
{
    constexpr int64_t kAtOnce = 100'000; // unless the process had to wait between the two
    constexpr int kTries = 5;
    for (int i = 1;; ++i) {
        const int64_t before = nanoseconds(CLOCK_MONOTONIC), real = nanoseconds(CLOCK_REALTIME);
        if (i == kTries || nanoseconds(CLOCK_MONOTONIC) - before < kAtOnce)
            return {real, before};
    }
}

std::string utcText(int64_t nanoseconds)
{
    const auto seconds = static_cast<time_t>(nanoseconds / 1'000'000'000);
    tm utc{};
    char text[32] = "";
    if (gmtime_r(&seconds, &utc) != nullptr)
        strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

std::optional<double> ClockWatch::step(const HostTime& time)
{
    constexpr int64_t kLeast = 10'000'000;      // what a wait between the two clocks may look like
    constexpr double kFastestSlew = 500 * 1e-6; // as adjtimex(2) allows
    const HostTime before = m_before.value_or(time);
    m_before = time;
    const int64_t passed = time.monotonic - before.monotonic;
    const int64_t moved = (time.real - before.real) - passed;
    const int64_t slewed = static_cast<int64_t>(static_cast<double>(passed) * kFastestSlew);
    if (std::abs(moved) < std::max(kLeast, 2 * slewed))
        return std::nullopt;
    return static_cast<double>(moved) / 1e9;
}
