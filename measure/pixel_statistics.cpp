// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Whole numbers, so that long runs lose nothing.
#include "measure/pixel_statistics.h"

PixelStatistics::PixelStatistics()
    : m_first(VQD_PIXELS), m_lastDepth(VQD_PIXELS), m_lastAmplitude(VQD_PIXELS), m_valid(VQD_PIXELS),
      m_pairs(VQD_PIXELS), m_depths(VQD_PIXELS), m_amplitudes(VQD_PIXELS), m_depthSteps(VQD_PIXELS),
      m_amplitudeSteps(VQD_PIXELS)
{
}

void PixelStatistics::add(const uint16_t* amplitude, const uint16_t* depth)
{
    const auto squared = [](int64_t step) { return static_cast<uint64_t>(step * step); };
    for (size_t i = 0; i < VQD_PIXELS; ++i) {
        const uint16_t d = depth[i], a = amplitude[i], before = m_lastDepth[i];
        m_lastDepth[i] = d;
        if (d == 0)
            continue;
        if (m_valid[i]++ == 0)
            m_first[i] = d;
        m_depths[i] += d;
        m_amplitudes[i] += a;
        if (before != 0) {
            ++m_pairs[i];
            m_depthSteps[i] += squared(d - before);
            m_amplitudeSteps[i] += squared(a - m_lastAmplitude[i]);
        }
        m_lastAmplitude[i] = a;
    }
    ++m_frames;
}
