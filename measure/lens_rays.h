// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Where the pixels of an image look that was not undistorted: undistortion mixes pixels, and so hides their noise.
#pragma once

#include <vector>

#include "VQD_API.h"

struct Flips {
    bool horizontal = false, vertical = false;
};

// The points of all pixels at 1 mm depth in metres, as pPointCloud has them of an undistorted image. Not a number where
// the lens model has no answer. The camera flips an image after the lens has distorted it.
std::vector<Point3f> distortedRays(const LensIntrinsic& k, const LensDistortion& d, Flips flips = {});

// The same points at a distance of 1 mm, for depth that was measured along the rays.
std::vector<Point3f> atOneMillimetre(std::vector<Point3f> rays);
