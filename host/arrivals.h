// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// When frames came, and what that says of those that did not. A frame carries no number of the camera's, so what is
// lost is an estimate from the time between two frames.
#pragma once

#include <chrono>
#include <deque>

// Between two frames of a camera that nothing holds up, in milliseconds.
double nominalInterval(int n);

struct Arrival {
    std::chrono::system_clock::time_point time; // when the read returned
    bool reopened = false;                      // the camera was opened again since the frame before
    int lost = 0;                               // frames between the one before and this
};

class Arrivals
{
public:
    using Clock = std::chrono::steady_clock;

    explicit Arrivals(double nominal) : m_nominal(nominal) {}

    // A read began, and ended with a frame.
    Arrival add(Clock::time_point began, Clock::time_point ended, bool reopened);

    int lost() const { return m_lost; }
    int reopens() const { return m_reopens; }
    double longest() const { return m_longest; } // seconds between two frames
    double rate() const;                         // frames a second, 0 for one frame

private:
    double period() const;

    const double m_nominal;
    Clock::time_point m_first, m_last;
    std::deque<double> m_recent; // intervals in which only the camera was waited for
    int m_frames = 0, m_lost = 0, m_reopens = 0;
    double m_longest = 0;
};
