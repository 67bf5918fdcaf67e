// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The undistortion maps in plain C++, the reference: the lens model for each pixel.
#include <cmath>

#include "geometry/undistortion.h"

LastMapPixel scalar::FillUndistortionMaps(const Lens& lens, bool fractions, const UndistortionMaps& maps)
{
    const auto [fx, fy, cx, cy] = lens.k;
    LastMapPixel last{};
    for (int i = 0; i < VQD_PIXELS; ++i) {
        const int column = i % VQD_WIDTH, row = i / VQD_WIDTH;
        last.x = (static_cast<float>(column) - cx) / fx;
        last.y = (static_cast<float>(row) - cy) / fy;
        last.distorted = Distort(lens.d, last.x, last.y);
        const float xs = last.distorted.x * fx + cx;
        const float ys = last.distorted.y * fy + cy;
        maps.x[i] = xs;
        maps.y[i] = ys;
        maps.distX[i] = fractions ? xs - truncf(xs) : xs;
        maps.distY[i] = fractions ? ys - truncf(ys) : ys;
    }
    return last;
}
