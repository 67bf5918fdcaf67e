// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// When the sensor completes which frame. Time comes from the caller.
#pragma once

#include <cstdint>
#include <optional>

namespace sim
{

using TimeUs = int64_t; // microseconds on any clock that the caller keeps and that never runs backwards
inline constexpr TimeUs kNever = INT64_MAX;

TimeUs addTime(TimeUs time, TimeUs more); // saturates at kNever; `more` is not negative

class FrameClock
{
public:
    struct Exposure {
        uint64_t index;
        TimeUs completed;
    };

    // Numbering goes on from one run to the next; the first frame of a run completes one period after its
    // start. With a period of 0 a frame is always ready.
    void start(TimeUs now, TimeUs period);
    void stop(TimeUs now);
    bool running() const { return m_running; }

    // The frame under exposure takes the new period; frames keep their phase.
    void setPeriod(TimeUs now, TimeUs period);

    // The newest complete frame, unless it was taken before; older ones are dropped.
    std::optional<Exposure> take(TimeUs now);

    // Drops all frames that are complete.
    void skip(TimeUs now);

    // When take() will have one: `now` when at once, kNever while the clock stands.
    TimeUs nextFrame(TimeUs now) const;

private:
    uint64_t completeBy(TimeUs now) const;
    void rebase(TimeUs now);
    TimeUs completionOf(uint64_t frames) const;

    bool m_running = false;
    TimeUs m_start = 0; // exposure of frame m_base begins
    TimeUs m_period = 0;
    uint64_t m_base = 0;
    uint64_t m_next = 0; // lowest index not taken or dropped
};

} // namespace sim
