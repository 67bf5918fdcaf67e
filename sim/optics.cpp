// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Newton's method on the Brown-Conrady model, once for each pixel.
#include "optics.h"

#include <cmath>
#include <limits>

#include "wire.h"

namespace sim
{

namespace
{
struct Distorted {
    double x, y;
    double xx, xy, yx, yy; // derivatives: xy is that of x after y
};
} // namespace

static Distorted distort(const Optics& lens, double x, double y)
{
    const double r2 = x * x + y * y;
    const double radial = 1 + r2 * (lens.k1 + r2 * (lens.k2 + r2 * lens.k3));
    const double slope = 2 * (lens.k1 + r2 * (2 * lens.k2 + r2 * 3 * lens.k3)); // of radial, after x: slope * x
    const double cross = x * y * slope + 2 * lens.p1 * x + 2 * lens.p2 * y;
    return {
        x * radial + 2 * lens.p1 * x * y + lens.p2 * (r2 + 2 * x * x),
        y * radial + lens.p1 * (r2 + 2 * y * y) + 2 * lens.p2 * x * y,
        radial + x * x * slope + 2 * lens.p1 * y + 6 * lens.p2 * x,
        cross,
        cross,
        radial + y * y * slope + 6 * lens.p1 * y + 2 * lens.p2 * x,
    };
}

Ray rayThrough(const Optics& lens, double column, double row)
{
    constexpr int kMostSteps = 30;
    constexpr double kGoodEnough = 1e-18; // square of a distance in normalised coordinates
    constexpr double kWidest = 100; // square of the tangent; no lens here sees further than 84 degrees off its axis
    constexpr float kNone = std::numeric_limits<float>::quiet_NaN();

    if (lens.fx == 0 || lens.fy == 0)
        return {kNone, kNone};
    const double wantedX = (column - lens.cx) / lens.fx, wantedY = (row - lens.cy) / lens.fy;
    double x = wantedX, y = wantedY;
    for (int step = 0; step < kMostSteps; step++) {
        const Distorted at = distort(lens, x, y);
        const double offX = at.x - wantedX, offY = at.y - wantedY;
        const double determinant = at.xx * at.yy - at.xy * at.yx;
        if (!(determinant > 0) || x * x + y * y > kWidest) // beyond the fold of a strong lens, or no lens at all
            break;
        if (offX * offX + offY * offY < kGoodEnough)
            return {static_cast<float>(x), static_cast<float>(y)};
        x -= (offX * at.yy - offY * at.xy) / determinant;
        y -= (offY * at.xx - offX * at.yx) / determinant;
    }
    return {kNone, kNone};
}

std::vector<Ray> rawRays(const Optics& lens, double columnShift, double rowShift)
{
    std::vector<Ray> rays;
    rays.reserve(kPixels);
    for (int row = 0; row < kRows; row++)
        for (int column = 0; column < kColumns; column++)
            rays.push_back(rayThrough(lens, column + columnShift, row + rowShift));
    return rays;
}

} // namespace sim
