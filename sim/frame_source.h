// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Where a camera gets its pictures from.
#pragma once

#include <optional>
#include <span>
#include <string>

#include "frame_clock.h"
#include "wire.h"

namespace sim
{

// What a frame source gets to know of the camera that asks it for a frame.
struct FrameRequest {
    uint64_t index;     // 0 for the first frame after power-up, then 1, 2, ..., also across a grab stop and start
    TimeUs exposed;     // when the frame was exposed, since power-up
    const Image& image; // the camera's working registers
    const std::string& product;
};

enum class Replay {
    none,  // the source renders
    frame, // the next recorded frame is there
    end,   // there are no more: the camera is unplugged, and does not come back by itself
};

struct FrameSource {
    virtual ~FrameSource() = default;

    // For a source that has what a camera sent once: writes header and planes, which leave as they are, whatever the
    // registers say. The camera asks once for each frame that it sends, so none is skipped when the host is slow.
    virtual Replay replay(const FrameRequest&, std::span<uint8_t, kFrameBytes>) { return Replay::none; }

    // The time from the frame that was replayed last to the next one; nothing when the camera's own rate counts.
    virtual std::optional<TimeUs> interval() const { return std::nullopt; }

    // Writes two planes of 320 x 240: amplitude, then depth in millimetres with 0 for invalid.
    virtual void render(const FrameRequest& request, std::span<uint16_t, kPixels> amplitude,
                        std::span<uint16_t, kPixels> depth) = 0;
};

} // namespace sim
