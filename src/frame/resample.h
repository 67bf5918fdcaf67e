// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Resampling of the raw planes through the undistortion maps. Pure functions over 320 x 240 pixels.
#pragma once

#include <climits>
#include <cstdint>

struct Planes {
    const uint16_t* amplitude;
    const uint16_t* depth;
};

struct Images {
    uint16_t* amplitude;
    uint16_t* depth;
};

// For each output pixel where it comes from in the raw planes, and the weights of the right and lower neighbours.
struct ResampleMaps {
    const float* x;
    const float* y;
    const float* fractionX;
    const float* fractionY;
};

// Interpolated values of the last pixel; 0 where it has none.
struct LastPixel {
    float amplitude;
    float depth;
};

inline constexpr int kNoGate = INT_MAX;

// Bilinear. A depth pixel whose four samples differ by more than `gate` millimetres is invalid. A source position
// outside the sensor makes both pixels 0; a neighbour beyond the border is clamped to it.
LastPixel ResampleBilinear(Planes raw, const ResampleMaps& maps, int gate, Images out);

// Nearest sample at the positions x, y.
void ResampleNearest(Planes raw, const float* x, const float* y, Images out);
