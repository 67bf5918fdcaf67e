// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A state as JSON.
#include "worker/worker_state.h"

#include <unistd.h>

#include "host/documents.h"

static constexpr int64_t kSecond = 1'000'000'000;

void RecentRate::add(int64_t monotonic)
{
    m_times.push_back(monotonic);
    while (monotonic - m_times.front() > 2 * kSecond)
        m_times.pop_front();
}

double RecentRate::at(int64_t monotonic) const
{
    if (m_times.size() < 2 || monotonic - m_times.back() > kSecond)
        return 0;
    return static_cast<double>(m_times.size() - 1) * kSecond / static_cast<double>(m_times.back() - m_times.front());
}

// Microseconds differ between any two starts, and are a whole number in every program that reads JSON.
WorkerState::WorkerState() : m_session(static_cast<uint64_t>(hostTime().real / 1000)) {}

Json WorkerState::json() const
{
    const std::lock_guard lock(m_mutex);
    Json json = document("worker");
    json["state"] = m_values.state;
    json["camera"] = m_values.camera;
    json["name"] = m_values.name.empty() ? Json() : Json(m_values.name);
    json["session"] = m_session;
    json["process"] = getpid();
    json["profile"] = m_values.profile;
    json["frames"] = m_values.frames;
    json["frames-per-second"] = m_values.rate.at(hostTime().monotonic);
    json["dropped"] = m_values.dropped;
    json["reopens"] = m_values.reopens;
    json["longest-gap"] = m_values.longestGap;
    json["temperature"] = m_values.frames > 0 ? Json(m_values.temperature) : Json();
    json["recording"] = m_values.recording;
    json["warning"] = m_values.warning.empty() ? Json() : Json(m_values.warning);
    return json;
}
