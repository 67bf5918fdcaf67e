// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A surface goes on to a pixel when it has the depth of the neighbour, or the depth to which the two neighbours on that
// side lead. The second keeps inclined surfaces out, whose steps from pixel to pixel are larger than any noise.
#include "measure/flying_pixels.h"

#include <cmath>

namespace
{

constexpr double kGap = 5; // times the noise

// Along one line of the image: the pixel, with two neighbours on either side.
bool flies(std::span<const double> depth, double noise, int at, int step)
{
    const auto d = [&](int offset) { return depth[static_cast<size_t>(at + offset * step)]; };
    const double here = d(0), before = d(-1), behind = d(1);
    if (before == 0 || behind == 0 || (here - before) * (behind - here) <= 0)
        return false;
    const double gap = kGap * noise;
    if (std::abs(here - before) <= gap || std::abs(behind - here) <= gap)
        return false;
    const auto continues = [&](double near, double far) {
        constexpr double kOfTwo = 2.45; // the noise of 2 near - far - here, of single pixels
        return far != 0 && std::abs(2 * near - far - here) <= kOfTwo * gap;
    };
    return !continues(before, d(-2)) && !continues(behind, d(2));
}

} // namespace

int flyingPixels(const Rectangle& region, std::span<const double> depth, std::span<const double> noise)
{
    int count = 0;
    for (int y = region.y; y < region.y + region.height; ++y) {
        for (int x = region.x; x < region.x + region.width; ++x) {
            const int i = y * VQD_WIDTH + x;
            const auto at = static_cast<size_t>(i);
            if (depth[at] == 0)
                continue;
            const bool inRow = x >= 2 && x < VQD_WIDTH - 2, inColumn = y >= 2 && y < VQD_HEIGHT - 2;
            count += (inRow && flies(depth, noise[at], i, 1)) || (inColumn && flies(depth, noise[at], i, VQD_WIDTH));
        }
    }
    return count;
}
