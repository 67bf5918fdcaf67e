// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Resampling of the raw planes through the undistortion maps. Pure functions over 320 x 240 pixels.
#pragma once

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

inline constexpr uint16_t kNoGate = UINT16_MAX; // no samples differ by more

// Workspace of the vector kernels: a copy of both planes, a row of amplitudes and the same row of depths side by side.
// A border repeats the outermost pixels, so that every pixel has a neighbour on each side. Zeros above it stand for
// what lies outside. The first pixel of each row is at a multiple of 32 bytes.
inline constexpr int kToDepths = VQD_WIDTH + 16;
inline constexpr int kRowStride = 2 * kToDepths;
inline constexpr int kBorderColumn = 15;
inline constexpr int kBorderRow = 2;
inline constexpr int kWorkspace = kRowStride * (kBorderRow + VQD_HEIGHT + 3) + 32; // windows extend beyond the border

namespace scalar
{
// Pixels from `first` up to, but not including, `last`. The workspace is not used.
LastPixel ResampleBilinear(Planes raw, const ResampleMaps& maps, uint16_t gate, Images out,
                           uint16_t* workspace = nullptr, int first = 0, int last = VQD_PIXELS);
void ResampleNearest(Planes raw, const float* x, const float* y, Images out);
} // namespace scalar

namespace simd
{
// Bilinear. A depth pixel whose four samples differ by more than `gate` millimetres is invalid. A source position
// outside the sensor makes both pixels 0; a neighbour beyond the border is clamped to it.
LastPixel ResampleBilinear(Planes raw, const ResampleMaps& maps, uint16_t gate, Images out, uint16_t* workspace);

// Nearest sample at the positions x, y.
void ResampleNearest(Planes raw, const float* x, const float* y, Images out);
} // namespace simd
