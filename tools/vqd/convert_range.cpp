// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A bound with a unit is a time, and one without is a number.
#include "convert_range.h"

#include <algorithm>
#include <charconv>

#include "amounts.h"

std::optional<Range::Bound> Range::bound(const std::string& text)
{
    if (text.empty())
        return std::nullopt;
    uint64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error == std::errc{} && stop == end && number > 0)
        return Bound{false, static_cast<double>(number)};
    const std::optional<double> seconds = secondsIn(text);
    if (!seconds || std::isdigit(static_cast<unsigned char>(text.back())) != 0)
        throw Failure(kUsage, "'" + text + "' is neither the number of a frame, from 1 on, nor a time such as 2.5s");
    return Bound{true, *seconds};
}

Range::Range(const std::string& text)
{
    if (text.empty())
        return;
    const size_t colon = text.find(':');
    if (colon == std::string::npos)
        throw Failure(kUsage, "'" + text + "' is not of the form FROM:TO");
    m_from = bound(text.substr(0, colon));
    m_to = bound(text.substr(colon + 1));
}

bool Range::isBefore(uint64_t number, double seconds) const
{
    return m_from && m_from->of(number, seconds) < m_from->value;
}

bool Range::isBehind(uint64_t number, double seconds) const
{
    return m_to && m_to->of(number, seconds) > m_to->value;
}

std::string checkRange(const std::string& text)
{
    try {
        const Range range(text);
        return "";
    } catch (const Failure& failure) {
        return failure.what();
    }
}

// The monotonic clock begins anew with the machine, which also means another session.
double RecordedTimes::add(const RecordedFrame& frame)
{
    const auto monotonic = static_cast<double>(frame.monotonicTime) - static_cast<double>(m_monotonic);
    const auto real = static_cast<double>(frame.realTime) - static_cast<double>(m_real);
    if (!std::exchange(m_isFirst, false))
        m_seconds += std::max(0.0, frame.session == m_session ? monotonic : real) / 1e9;
    m_session = frame.session;
    m_monotonic = frame.monotonicTime;
    m_real = frame.realTime;
    return m_seconds;
}
