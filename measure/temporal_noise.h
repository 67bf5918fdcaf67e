// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// How much the depth of each pixel changes from frame to frame. It needs every frame: whoever sees only some of them
// gets another result.
#pragma once

#include <optional>
#include <vector>

#include "measure/region.h"

class TemporalNoise
{
public:
    static constexpr int kWindow = 30; // frames

    // One depth plane, VQD_WIDTH x VQD_HEIGHT.
    void add(const uint16_t* depth);

    // Frames that do not continue those before.
    void forget() { m_frames = 0; }

    int frames() const { return m_frames; } // that the result goes over

    // The root of the mean variance of all pixels in the region that had a depth at least twice.
    std::optional<double> sigma(const Rectangle& region) const;

private:
    int m_frames = 0, m_next = 0;
    std::vector<uint16_t> m_window; // of all pixels, frame by frame
    std::vector<uint32_t> m_counts, m_sums;
    std::vector<uint64_t> m_squares;
};
