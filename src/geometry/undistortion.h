// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The undistortion maps as a pure function.
#pragma once

#include "geometry/lens_model.h"
#include "simd/kernels.h"

struct UndistortionMaps {
    float* x; // raw column and row of each corrected pixel
    float* y;
    float* distX; // their fractions, or the column and row again
    float* distY;
};

// Where the last pixel came from, in normalised coordinates.
struct LastMapPixel {
    float x, y;
    Distorted distorted;
};

namespace scalar
{
LastMapPixel FillUndistortionMaps(const Lens& lens, bool fractions, const UndistortionMaps& maps);
}

namespace simd
{
// Fills the 320 x 240 entries of each map. `fractions` chooses what distX and distY hold.
LastMapPixel FillUndistortionMaps(const Lens& lens, bool fractions, const UndistortionMaps& maps);
} // namespace simd
