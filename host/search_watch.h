// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Notices, while a read of the library blocks, that the library has lost its camera and searches for it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

// Each may be left out.
struct SearchEvents {
    std::function<void()> lost;               // on a thread of its own, while the read is still blocked
    std::function<void(double seconds)> back; // after that: the search was successful
};

class SearchWatch
{
public:
    SearchWatch(int number, SearchEvents events);
    SearchWatch(const SearchWatch&) = delete;
    SearchWatch& operator=(const SearchWatch&) = delete;

    // Around each read. readEnds() says whether the library has opened the camera again.
    void readBegins();
    bool readEnds();

private:
    void watch(const std::stop_token& stop);

    const int m_number;
    const SearchEvents m_events;
    std::mutex m_mutex;
    std::condition_variable_any m_wake;
    bool m_reading = false, m_told = false;
    std::chrono::steady_clock::time_point m_since;
    std::jthread m_thread; // last: it uses all of the above
};
