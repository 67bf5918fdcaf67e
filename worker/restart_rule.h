// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// When a camera's process may be started again. It knows no clock and no bus; it is told.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "host/bus_view.h"

// Pauses that double from half a second to 30 s, as long as nothing works in between.
class BackOff
{
public:
    std::chrono::milliseconds next();
    void forgive() { m_next = kLeast; }

private:
    static constexpr std::chrono::milliseconds kLeast{500}, kMost{30'000};
    std::chrono::milliseconds m_next = kLeast;
};

class RestartRule
{
public:
    using Time = std::chrono::steady_clock::time_point;

    // How a camera's process ended.
    struct End {
        std::chrono::duration<double> withFrames; // how long frames came
        std::optional<Place> locked;              // where the camera is, when another program has locked it
    };

    // `port` is empty when the camera is not named by its port.
    explicit RestartRule(std::string port) : m_port(std::move(port)) {}

    void ended(Time now, const End& end, const std::vector<Place>& attached);

    // `isLocked` is asked about the camera that was locked at the last end.
    bool mayStart(Time now, const std::vector<Place>& attached, bool (*isLocked)(const Place& place)) const;

private:
    const std::string m_port;
    BackOff m_backOff;
    Time m_notBefore{};
    std::vector<Place> m_attached; // at the last end
    std::optional<Place> m_locked;
};
