// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Host-side depth corrections, range clip and edge removal. Pure functions over 320 x 240 pixels, in place.
#pragma once

#include <cstdint>

#include "VQD_API.h"
#include "simd/kernels.h"

inline constexpr int kFppnBlock = 4; // pixels a side
inline constexpr int kFppnBlocksPerRow = VQD_WIDTH / kFppnBlock;

struct DepthCorrection {
    const int* offsets;     // FPPN, mm, one for each block; null: off
    const double* factors;  // orthogonal, one for each pixel; null: off
    int minDepth, maxDepth; // mm; a depth outside becomes 0
};

namespace scalar
{
void CorrectDepth(uint16_t* depth, const DepthCorrection& correction);
// Rows `first` to 238.
void RemoveEdges(const uint16_t* amplitude, uint16_t* depth, uint16_t leastAmplitude, uint16_t maxSpread,
                 int first = 0);
} // namespace scalar

namespace simd
{
// Corrects valid pixels and clips all.
void CorrectDepth(uint16_t* depth, const DepthCorrection& correction);

// Clears pixels whose 2 x 2 neighbourhood spreads by more than `maxSpread` millimetres and whose amplitude is at least
// `leastAmplitude`. The last row and column are never cleared.
void RemoveEdges(const uint16_t* amplitude, uint16_t* depth, uint16_t leastAmplitude, uint16_t maxSpread);
} // namespace simd
