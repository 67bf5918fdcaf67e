// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Resampling of the raw planes through the undistortion maps. Pure functions over 320 x 240 pixels.
#pragma once

#include <climits>
#include <cstdint>

#include "VQD_API.h"
#include "simd/kernels.h"

struct Planes {
    const uint16_t* amplitude;
    const uint16_t* depth;
};

struct Images {
    uint16_t* amplitude;
    uint16_t* depth;
};

// Where each output pixel comes from in the raw planes, and the weights of the right and lower neighbours.
struct ResampleMaps {
    const float* x;
    const float* y;
    const float* fractionX;
    const float* fractionY;
};

// Interpolated values of the last pixel, 0 if it has none.
struct LastPixel {
    float amplitude;
    float depth;
};

inline constexpr int kNoGate = INT_MAX;

// Workspace of the vector kernels: both planes in one, amplitude in the lower half of each entry. A border repeats the
// outermost pixels, so that every pixel has a neighbour on each side; two rows of zeros stand for what lies outside.
// The first pixel of each row is at a multiple of 64 bytes.
inline constexpr int kPairsStride = VQD_WIDTH + 16;
inline constexpr int kPairsFirst = 15;                                // the upper left corner of the border
inline constexpr int kPairsOutside = kPairsStride * (VQD_HEIGHT + 2); // from there to the first zero
inline constexpr int kPairs = kPairsFirst + kPairsOutside + 2 * kPairsStride;

namespace scalar
{
// Pixels from `first` up to, but not including, `last`. The workspace is not used.
LastPixel ResampleBilinear(Planes raw, const ResampleMaps& maps, int gate, Images out, uint32_t* pairs = nullptr,
                           int first = 0, int last = VQD_PIXELS);
void ResampleNearest(Planes raw, const float* x, const float* y, Images out, uint32_t* pairs = nullptr);
} // namespace scalar

namespace simd
{
// Bilinear. A depth pixel whose four samples differ by more than `gate` millimetres is invalid. A source position
// outside the sensor makes both pixels 0; a neighbour beyond the border is clamped to it.
LastPixel ResampleBilinear(Planes raw, const ResampleMaps& maps, int gate, Images out, uint32_t* pairs);

// Nearest sample at the positions x, y.
void ResampleNearest(Planes raw, const float* x, const float* y, Images out, uint32_t* pairs);
} // namespace simd
