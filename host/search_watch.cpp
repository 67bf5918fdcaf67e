// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The library writes 0 to m_nDeviceOpen when a re-open begins, and 1 when it has found the camera. A value that it
// never writes, put there before each read, shows that neither has happened.
#include "host/search_watch.h"

#include <atomic>

#include "VQD_API.h"

static constexpr int kNoReopen = 2;

SearchWatch::SearchWatch(int number, SearchEvents events)
    : m_number(number), m_events(std::move(events)), m_thread([this](const std::stop_token& stop) { watch(stop); })
{
}

void SearchWatch::readBegins()
{
    const std::lock_guard lock(m_mutex);
    m_nDeviceOpen[m_number] = kNoReopen;
    m_reading = true;
}

bool SearchWatch::readEnds()
{
    const std::lock_guard lock(m_mutex);
    m_reading = false;
    const bool found = m_nDeviceOpen[m_number] == 1;
    if (m_told && found && m_events.back)
        m_events.back(std::chrono::duration<double>(std::chrono::steady_clock::now() - m_since).count());
    m_told = false;
    return found;
}

void SearchWatch::watch(const std::stop_token& stop)
{
    constexpr auto kLook = std::chrono::milliseconds(100);
    std::unique_lock lock(m_mutex);
    while (!stop.stop_requested()) {
        m_wake.wait_for(lock, stop, kLook, [] { return false; });
        const bool searching = std::atomic_ref(m_nDeviceOpen[m_number]).load(std::memory_order_relaxed) == 0;
        if (!m_reading || !searching || m_told)
            continue;
        m_told = true;
        m_since = std::chrono::steady_clock::now();
        if (m_events.lost)
            m_events.lost();
    }
}
