// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The wall clock and the waits of the camera protocol.
#include "device/base/clock.h"

#include <algorithm>
#include <cerrno>
#include <sys/time.h>
#include <sys/times.h>
#include <unistd.h>

static constexpr int64_t kTickUs = 10000; // of times(): Linux counts 100 ticks a second

int64_t NowMs()
{
    timeval now{};
    gettimeofday(&now, nullptr);
    return int64_t{now.tv_sec} * 1000 + now.tv_usec / 1000;
}

// Microseconds that have certainly passed since the tick count `start`. The wall clock would not do: it may be set
// meanwhile, and each of its readings belongs to a time stamp. times() rather than CLOCK_MONOTONIC keeps gettimeofday()
// the library's only clock, which a program that runs it in virtual time has to replace.
static int64_t passedSince(clock_t start)
{
    tms unused;
    return (int64_t{times(&unused)} - int64_t{start} - 1) * kTickUs;
}

void SleepUs(unsigned microseconds)
{
    tms unused;
    const clock_t start = times(&unused);
    int64_t left = microseconds;
    while (left > 0 && usleep(static_cast<useconds_t>(left)) != 0 && errno == EINTR)
        left = std::min<int64_t>(microseconds, microseconds - passedSince(start));
}

void SleepOneSecond()
{
    tms unused;
    const clock_t start = times(&unused);
    errno = 0;
    // sleep() reports whole seconds left, so it can return 0 although a signal cut it short.
    if (sleep(1) != 0 || errno == EINTR)
        SleepUs(static_cast<unsigned>(std::clamp<int64_t>(1'000'000 - passedSince(start), 0, 999'999)));
}
