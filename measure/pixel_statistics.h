// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What each pixel did in all frames of a run. The noise comes from the differences of successive frames, because these
// hardly notice that a camera drifts while it warms up.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "VQD_API.h"

class PixelStatistics
{
public:
    PixelStatistics();

    // Planes of VQD_WIDTH x VQD_HEIGHT. A pixel without a depth counts in neither.
    void add(const uint16_t* amplitude, const uint16_t* depth);

    uint64_t frames() const { return m_frames; }

    // Of one pixel. The means are for pixels with a depth in at least one frame, variances for those with a pair.
    uint32_t valid(size_t i) const { return m_valid[i]; } // frames with a depth
    uint32_t pairs(size_t i) const { return m_pairs[i]; } // successive frames that both had one
    uint16_t first(size_t i) const { return m_first[i]; } // its first depth; 0 without one
    double depth(size_t i) const { return static_cast<double>(m_depths[i]) / m_valid[i]; }
    double amplitude(size_t i) const { return static_cast<double>(m_amplitudes[i]) / m_valid[i]; }
    double depthVariance(size_t i) const { return static_cast<double>(m_depthSteps[i]) / (2.0 * m_pairs[i]); }
    double amplitudeVariance(size_t i) const { return static_cast<double>(m_amplitudeSteps[i]) / (2.0 * m_pairs[i]); }

    // Whether its mean counts: it had a depth in at least half of the frames.
    bool isSteady(size_t i) const { return m_valid[i] > 0 && 2 * uint64_t{m_valid[i]} >= m_frames; }

private:
    uint64_t m_frames = 0;
    std::vector<uint16_t> m_first, m_lastDepth, m_lastAmplitude;
    std::vector<uint32_t> m_valid, m_pairs;
    std::vector<uint64_t> m_depths, m_amplitudes;         // sums
    std::vector<uint64_t> m_depthSteps, m_amplitudeSteps; // sums of the squares of differences
};
