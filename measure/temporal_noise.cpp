// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Whole numbers, so that what leaves the window takes away exactly what it brought.
#include "measure/temporal_noise.h"

#include <algorithm>
#include <cmath>

void TemporalNoise::add(const uint16_t* depth)
{
    if (m_frames == 0) {
        m_next = 0;
        m_window.assign(size_t{kWindow} * VQD_PIXELS, 0);
        m_counts.assign(VQD_PIXELS, 0);
        m_sums.assign(VQD_PIXELS, 0);
        m_squares.assign(VQD_PIXELS, 0);
    }
    uint16_t* __restrict const oldest = m_window.data() + size_t{VQD_PIXELS} * static_cast<size_t>(m_next);
    uint32_t* __restrict const counts = m_counts.data();
    uint32_t* __restrict const sums = m_sums.data();
    uint64_t* __restrict const squares = m_squares.data();
    for (size_t i = 0; i < VQD_PIXELS; ++i) { // no depth is 0 and adds nothing to a sum
        const uint32_t goes = oldest[i], comes = depth[i];
        counts[i] += (comes != 0 ? 1U : 0U) - (goes != 0 ? 1U : 0U);
        sums[i] += comes - goes;
        squares[i] += uint64_t{comes} * comes - uint64_t{goes} * goes;
        oldest[i] = depth[i];
    }
    m_next = (m_next + 1) % kWindow;
    m_frames = std::min(m_frames + 1, kWindow);
}

std::optional<double> TemporalNoise::sigma(const Rectangle& region) const
{
    double variances = 0;
    int pixels = 0;
    for (int y = region.y; m_frames > 1 && y < region.y + region.height; ++y) {
        for (int x = region.x; x < region.x + region.width; ++x) {
            const auto i = static_cast<size_t>(y * VQD_WIDTH + x);
            const uint64_t n = m_counts[i], sum = m_sums[i];
            if (n < 2)
                continue;
            variances += static_cast<double>(n * m_squares[i] - sum * sum) / static_cast<double>(n * (n - 1));
            ++pixels;
        }
    }
    return pixels > 0 ? std::optional(std::sqrt(variances / pixels)) : std::nullopt;
}
