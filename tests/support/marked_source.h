// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Frames in which each pixel shows its camera, frame and place, with values that a camera passes on unchanged.
#pragma once

#include <cstdint>
#include <cstring>

#include "VQD_API.h"
#include "sim/camera.h"

struct Marked : sim::FrameSource {
    explicit Marked(uint16_t mark) : mark(mark) {}

    static uint16_t amplitudeAt(uint64_t frame, size_t i)
    {
        return static_cast<uint16_t>(1000 + (i * 31 + frame) % 997);
    }
    uint16_t depthAt(uint64_t frame, size_t i) const { return static_cast<uint16_t>(mark + (i + frame) % 50); }

    void render(const sim::FrameRequest& request, std::span<uint16_t, sim::kPixels> amplitude,
                std::span<uint16_t, sim::kPixels> depth) override
    {
        for (size_t i = 0; i < sim::kPixels; ++i) {
            amplitude[i] = amplitudeAt(request.index, i);
            depth[i] = depthAt(request.index, i);
        }
    }

    // Counts the pixels of two images that differ from those of a frame.
    size_t wrongPixels(uint64_t frame, const uint16_t* amplitude, const uint16_t* depth) const
    {
        size_t wrong = 0;
        for (size_t i = 0; i < sim::kPixels; ++i)
            wrong += amplitude[i] != amplitudeAt(frame, i) || depth[i] != depthAt(frame, i);
        return wrong;
    }

    uint16_t mark;
};

// The number that the virtual camera has given the frame in the library's buffer.
inline uint64_t frameInBuffer()
{
    uint64_t frame = 0;
    memcpy(&frame, buffers + 16, sizeof frame);
    return frame;
}
