// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// When frames arrived, and how many did not. The camera does not number its frames, so the number of lost ones is an
// estimate from the time between two that arrived.
#pragma once

#include <chrono>
#include <deque>

// The time between two frames of camera n when nothing delays it, in milliseconds.
double nominalInterval(int n);

struct Arrival {
    std::chrono::system_clock::time_point time; // when the read returned
    bool reopened = false;                      // the library re-opened the camera since the previous frame
    int lost = 0;                               // frames between the previous one and this one
};

class Arrivals
{
public:
    using Clock = std::chrono::steady_clock;

    Arrivals() = default; // for frames that were judged where they were read
    explicit Arrivals(double nominal) : m_nominal(nominal) {}

    // Takes note of a read that ended with a frame.
    Arrival add(Clock::time_point began, Clock::time_point ended, bool reopened);

    // Takes note of a frame that was judged already.
    void add(const Arrival& arrival, Clock::time_point ended);

    int lost() const { return m_lost; }
    int reopens() const { return m_reopens; }
    double longest() const { return m_longest; } // seconds between two frames
    double rate() const;                         // frames a second, 0 for one frame

private:
    double period() const;

    const double m_nominal = 0;
    Clock::time_point m_first, m_last;
    std::deque<double> m_recent; // ms, only of reads that had to wait for the camera
    int m_frames = 0, m_lost = 0, m_reopens = 0;
    double m_longest = 0;
};
