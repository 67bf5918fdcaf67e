// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Which frames of a recording are wanted, and when a frame was.
#pragma once

#include <optional>
#include <string>

#include "recording/recording.h"

// "FROM:TO", both included and both optional: a number from 1 on, or a time since the first frame, such as 2.5s.
class Range
{
public:
    Range() = default;
    // Fails with a usage error for what is none. Empty: all frames.
    explicit Range(const std::string& text);

    bool isBefore(uint64_t number, double seconds) const;
    bool isBehind(uint64_t number, double seconds) const;

private:
    struct Bound {
        bool isTime;
        double value;

        double of(uint64_t number, double seconds) const { return isTime ? seconds : static_cast<double>(number); }
    };
    static std::optional<Bound> bound(const std::string& text);

    std::optional<Bound> m_from, m_to;
};

// Why a text is no range; empty when it is one.
std::string checkRange(const std::string& text);

// Seconds since the first frame, whatever was done to the machine's clock meanwhile.
class RecordedTimes
{
public:
    // Of the next frame.
    double add(const RecordedFrame& frame);

private:
    bool m_isFirst = true;
    uint64_t m_session = 0, m_monotonic = 0; // of the frame before
    int64_t m_real = 0;
    double m_seconds = 0;
};
