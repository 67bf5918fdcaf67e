// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// How a worker is: written by the camera's loop, read by whoever asks.
#pragma once

#include <deque>
#include <mutex>
#include <string>

#include "host/host_time.h"
#include "host/json.h"

// Frames a second over the last two seconds.
class RecentRate
{
public:
    void add(int64_t monotonic);
    double at(int64_t monotonic) const; // 0 when there was no frame for a second

private:
    std::deque<int64_t> m_times;
};

class WorkerState
{
public:
    struct Values {
        std::string state = "starting"; // or "streaming", "lost"
        Json camera;                    // as vqd list shows it; null before it was found
        std::string name;               // what finds the camera again; empty before it was found
        Json profile;                   // the file whose values are in use, or null
        uint64_t frames = 0, dropped = 0, reopens = 0;
        double longestGap = 0;  // seconds
        double temperature = 0; // degrees Celsius
        std::string warning;    // what this session does without
        Json recording;         // the latest one; null before the first
        RecentRate rate;
    };

    WorkerState();

    uint64_t session() const { return m_session; }

    template <typename Change> void change(const Change& change)
    {
        const std::lock_guard lock(m_mutex);
        change(m_values);
    }

    Json json() const; // schema vqd.worker/1

private:
    const uint64_t m_session;
    mutable std::mutex m_mutex;
    Values m_values;
};
