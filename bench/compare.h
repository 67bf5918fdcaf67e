// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Times two sides in turns and prints the ratio of their medians.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

template <typename Run> double microseconds(Run& run)
{
    const auto start = std::chrono::steady_clock::now();
    run();
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
}

inline double median(std::vector<double> times)
{
    const auto middle = times.begin() + static_cast<long>(times.size() / 2);
    std::nth_element(times.begin(), middle, times.end());
    return *middle;
}

constexpr double kNoGoal = 0;

inline void prepareNothing() {}

// Rounds in pairs, so that a change in the machine's speed affects both sides. `prepare` comes before each and is not
// timed.
template <typename Ours, typename Theirs, typename Prepare = void (*)()>
void compare(const char* name, double goal, Ours ours, Theirs theirs, Prepare prepare = prepareNothing)
{
    constexpr int kRounds = 301;
    std::vector<double> a, b;
    for (int i = 0; i < kRounds; ++i) {
        prepare();
        a.push_back(microseconds(ours));
        b.push_back(microseconds(theirs));
    }
    const double ratio = median(a) / median(b);
    std::printf("%-62s %8.1f us %8.1f us  %6.3f", name, median(a), median(b), ratio);
    if (goal != kNoGoal)
        std::printf("  %5.2f  %s", goal, ratio <= goal ? "met" : "MISSED");
    std::printf("\n");
}
