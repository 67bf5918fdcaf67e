// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The estimate of lost frames from the intervals between those that came.
#include "host/arrivals.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "VQD_API.h"

double nominalInterval(int n)
{
    return 1000.0 / 30 + vqdGetFPSDelay(n);
}

// A camera may be slower than it says, for instance when several take turns. The recent intervals show that.
double Arrivals::period() const
{
    if (m_recent.empty())
        return m_nominal;
    std::vector<double> sorted(m_recent.begin(), m_recent.end());
    std::sort(sorted.begin(), sorted.end());
    return std::max(m_nominal, sorted[sorted.size() / 2]);
}

Arrival Arrivals::add(Clock::time_point began, Clock::time_point ended, bool reopened)
{
    constexpr size_t kRecent = 15;
    using Milliseconds = std::chrono::duration<double, std::milli>;
    Arrival arrival{std::chrono::system_clock::now(), reopened, 0};
    if (m_frames > 0) {
        const double interval = Milliseconds(ended - m_last).count();
        const bool prompt = Milliseconds(began - m_last).count() < m_nominal / 2;
        if (prompt && !reopened) {
            m_recent.push_back(interval);
            if (m_recent.size() > kRecent)
                m_recent.pop_front();
        }
        arrival.lost = std::max(static_cast<int>(std::lround(interval / period())) - 1, 0);
    }
    add(arrival, ended);
    return arrival;
}

// What happened before the first frame does not count.
void Arrivals::add(const Arrival& arrival, Clock::time_point ended)
{
    if (m_frames++ == 0) {
        m_first = m_last = ended;
        return;
    }
    m_lost += arrival.lost;
    m_reopens += arrival.reopened;
    m_longest = std::max(m_longest, std::chrono::duration<double>(ended - m_last).count());
    m_last = ended;
}

double Arrivals::rate() const
{
    return m_frames > 1 ? (m_frames - 1) / std::chrono::duration<double>(m_last - m_first).count() : 0;
}
