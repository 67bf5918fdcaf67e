// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Tells people on standard error, while a read of the library blocks, that it has lost its camera and searches for it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

class SearchNotes
{
public:
    SearchNotes(int number, std::string serial);
    SearchNotes(const SearchNotes&) = delete;
    SearchNotes& operator=(const SearchNotes&) = delete;

    // Around each read. readEnds() says whether the library has opened the camera again.
    void readBegins();
    bool readEnds();

private:
    void watch(const std::stop_token& stop);

    const int m_number;
    const std::string m_serial;
    std::mutex m_mutex;
    std::condition_variable_any m_wake;
    bool m_reading = false, m_told = false;
    std::chrono::steady_clock::time_point m_since;
    std::jthread m_thread; // last: it uses all of the above
};
