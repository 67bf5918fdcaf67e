// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Where a raw pixel looks: the inverse of the lens distortion.
#pragma once

#include <vector>

#include "scene.h"

namespace sim
{

inline constexpr int kColumns = 320, kRows = 240;

// A direction with z = 1: x to the right, y down. Not a number where the lens model has no answer.
struct Ray {
    float x, y;
};

// The undistorted direction that the lens puts on a raw image position.
Ray rayThrough(const Lens& lens, double column, double row);

// One ray for each raw pixel, shifted by a part of a pixel, row by row.
std::vector<Ray> rawRays(const Lens& lens, double columnShift = 0, double rowShift = 0);

} // namespace sim
