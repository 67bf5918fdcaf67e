// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The undistortion maps: the lens model once a pixel, a row at a time so that the compiler can vectorise it.
#include <cmath>
#include <cstring>

#include "device/kernel_target.h"
#include "geometry/undistortion.h"

// `x` holds the normalised columns, `y` is the normalised row.
VQD_KERNEL static void fillRow(const Lens& lens, const float* __restrict x, float y, float* __restrict xs,
                               float* __restrict ys)
{
    const auto [fx, fy, cx, cy] = lens.k;
    const LensDistortion d = lens.d;
    for (int u = 0; u < VQD_WIDTH; ++u) {
        const Distorted point = Distort(d, x[u], y);
        xs[u] = point.x * fx + cx;
        ys[u] = point.y * fy + cy;
    }
}

VQD_KERNEL static void fillFractions(const float* __restrict position, float* __restrict fraction)
{
    for (int u = 0; u < VQD_WIDTH; ++u)
        fraction[u] = position[u] - truncf(position[u]);
}

static void finishRow(const float* position, bool fractions, float* out)
{
    if (fractions)
        fillFractions(position, out);
    else
        memcpy(out, position, VQD_WIDTH * sizeof *out);
}

LastMapPixel FillUndistortionMaps(const Lens& lens, bool fractions, const UndistortionMaps& maps)
{
    float x[VQD_WIDTH];
    for (int u = 0; u < VQD_WIDTH; ++u)
        x[u] = (static_cast<float>(u) - lens.k.cx) / lens.k.fx;
    float y = 0;
    for (int v = 0; v < VQD_HEIGHT; ++v) {
        const int row = VQD_WIDTH * v;
        y = (static_cast<float>(v) - lens.k.cy) / lens.k.fy;
        fillRow(lens, x, y, maps.x + row, maps.y + row);
        finishRow(maps.x + row, fractions, maps.distX + row);
        finishRow(maps.y + row, fractions, maps.distY + row);
    }
    return {x[VQD_WIDTH - 1], y, Distort(lens.d, x[VQD_WIDTH - 1], y)};
}
