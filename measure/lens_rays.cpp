// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Newton's method on the lens model, once for each pixel.
#include "measure/lens_rays.h"

#include <cmath>
#include <limits>

namespace
{

constexpr double kMillimetre = 0.001; // in metres

struct Direction {
    double x, y;
};

// The model, and its derivatives: xy is that of x after y, and the same as that of y after x.
struct Distorted {
    double x, y, xx, xy, yy;
};

Distorted distorted(const LensDistortion& d, Direction u)
{
    const double k1 = d.k1, k2 = d.k2, k3 = d.k3, p1 = d.p1, p2 = d.p2;
    const double r2 = u.x * u.x + u.y * u.y;
    const double radial = 1 + r2 * (k1 + r2 * (k2 + r2 * k3));
    const double slope = 2 * (k1 + r2 * (2 * k2 + r2 * 3 * k3)); // of radial after x: slope * x
    return {u.x * radial + 2 * p1 * u.x * u.y + p2 * (r2 + 2 * u.x * u.x),
            u.y * radial + p1 * (r2 + 2 * u.y * u.y) + 2 * p2 * u.x * u.y,
            radial + u.x * u.x * slope + 2 * p1 * u.y + 6 * p2 * u.x, u.x * u.y * slope + 2 * p1 * u.x + 2 * p2 * u.y,
            radial + u.y * u.y * slope + 6 * p1 * u.y + 2 * p2 * u.x};
}

// Not a number beyond the fold of a strong lens.
Direction undistorted(const LensDistortion& d, Direction wanted)
{
    constexpr int kMostSteps = 30;
    constexpr double kGoodEnough = 1e-18; // square of a distance
    constexpr double kWidest = 100;       // square of the tangent: 84 degrees off the axis
    Direction u = wanted;
    for (int step = 0; step < kMostSteps; ++step) {
        const Distorted at = distorted(d, u);
        const double offX = at.x - wanted.x, offY = at.y - wanted.y;
        const double determinant = at.xx * at.yy - at.xy * at.xy;
        if (!(determinant > 0) || u.x * u.x + u.y * u.y > kWidest)
            break;
        if (offX * offX + offY * offY < kGoodEnough)
            return u;
        u.x -= (offX * at.yy - offY * at.xy) / determinant;
        u.y -= (offY * at.xx - offX * at.xy) / determinant;
    }
    constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
    return {kNone, kNone};
}

} // namespace

std::vector<Point3f> distortedRays(const LensIntrinsic& k, const LensDistortion& d, Flips flips)
{
    const double fx = k.fx, fy = k.fy, cx = k.cx, cy = k.cy, skew = d.skew;
    std::vector<Point3f> rays;
    rays.reserve(VQD_PIXELS);
    for (int v = 0; v < VQD_HEIGHT; ++v) {
        for (int u = 0; u < VQD_WIDTH; ++u) {
            const double y = ((flips.vertical ? VQD_HEIGHT - 1 - v : v) - cy) / fy;
            const double x = ((flips.horizontal ? VQD_WIDTH - 1 - u : u) - cx) / fx - skew * y;
            const Direction direction = undistorted(d, {x, y});
            rays.push_back({static_cast<float>(direction.x * kMillimetre),
                            static_cast<float>(-direction.y * kMillimetre), static_cast<float>(kMillimetre)});
        }
    }
    return rays;
}

std::vector<Point3f> atOneMillimetre(std::vector<Point3f> rays)
{
    for (Point3f& ray : rays) {
        const double scale = kMillimetre / std::hypot(double{ray.x}, double{ray.y}, double{ray.z});
        ray = {static_cast<float>(ray.x * scale), static_cast<float>(ray.y * scale), static_cast<float>(ray.z * scale)};
    }
    return rays;
}
