// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What the statistics of one camera and of all of them have in common.
#pragma once

#include <algorithm>
#include <cmath>

#include "host/json.h"

struct StatsOptions {
    int seconds = 0, frames = 0; // 0: until a signal
};

// The time between frames in some period. Mean and jitter leave out intervals with a re-open; the longest interval
// counts all.
struct Intervals {
    int count = 0;
    double least = 0, most = 0, sum = 0, squares = 0; // in ms

    void addGap(double ms) { most = std::max(most, ms); }
    void add(double ms)
    {
        least = count == 0 ? ms : std::min(least, ms);
        most = std::max(most, ms);
        sum += ms;
        squares += ms * ms;
        ++count;
    }
    double mean() const { return count > 0 ? sum / count : 0; }
    // The standard deviation.
    double jitter() const { return count > 0 ? std::sqrt(std::max(squares / count - mean() * mean(), 0.0)) : 0; }
    Json json() const { return {{"mean", mean()}, {"jitter", jitter()}, {"min", least}, {"max", most}}; }
};

// The same of all cameras.
int statsAll(const StatsOptions& options);
