// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Where a raw pixel looks: the inverse of the lens distortion.
#pragma once

#include <vector>

namespace sim
{

// Brown-Conrady: radial k1 k2 k3, tangential p1 p2; fx, fy, cx and cy in pixels of 320 x 240.
struct Optics {
    double fx = 204, fy = 204, cx = 160, cy = 120;
    double k1 = -0.346, k2 = 0.12, k3 = 0, p1 = 0, p2 = 0;
};

// A direction with z = 1: x to the right, y down. Not a number where the lens model has no answer.
struct Ray {
    float x, y;
};

// The undistorted direction that the lens puts on a raw image position.
Ray rayThrough(const Optics& lens, double column, double row);

// One ray for each raw pixel, shifted by a part of a pixel, row by row.
std::vector<Ray> rawRays(const Optics& lens, double columnShift = 0, double rowShift = 0);

} // namespace sim
