// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Where a camera gets its pictures from.
#pragma once

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

struct FrameSource {
    virtual ~FrameSource() = default;
    // Writes two planes of 320 x 240: amplitude, then depth in millimetres with 0 for invalid.
    virtual void render(const FrameRequest& request, std::span<uint16_t, kPixels> amplitude,
                        std::span<uint16_t, kPixels> depth) = 0;
};

} // namespace sim
