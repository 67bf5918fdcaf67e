// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// See search_notes.h. The library writes 0 to m_nDeviceOpen when a re-open begins and 1 when it has found the camera; a
// value that it never writes tells that neither has happened.
#include "host/search_watch.h"

#include <atomic>

#include "VQD_API.h"

#include "common.h"

static constexpr int kNoReopen = 2;

SearchNotes::SearchNotes(int number, std::string serial)
    : m_number(number), m_serial(std::move(serial)), m_thread([this](const std::stop_token& stop) { watch(stop); })
{
}

void SearchNotes::readBegins()
{
    const std::lock_guard lock(m_mutex);
    m_nDeviceOpen[m_number] = kNoReopen;
    m_reading = true;
}

bool SearchNotes::readEnds()
{
    const std::lock_guard lock(m_mutex);
    m_reading = false;
    const bool found = m_nDeviceOpen[m_number] == 1;
    if (m_told && found)
        note("camera %s is back after %.1f s", m_serial.c_str(),
             std::chrono::duration<double>(std::chrono::steady_clock::now() - m_since).count());
    m_told = false;
    return found;
}

void SearchNotes::watch(const std::stop_token& stop)
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
        note("camera %s is lost, searching", m_serial.c_str());
    }
}
