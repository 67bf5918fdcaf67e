// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Sums of whole numbers are exact, so that a mean does not depend on the order of the pixels.
#include "measure/region.h"

#include <algorithm>
#include <cmath>

namespace
{

std::optional<double> deviation(const std::vector<uint16_t>& depths, double mean)
{
    double squares = 0;
    for (const uint16_t depth : depths)
        squares += (depth - mean) * (depth - mean);
    return depths.size() > 1 ? std::optional(std::sqrt(squares / static_cast<double>(depths.size() - 1)))
                             : std::nullopt;
}

Histogram histogramOf(const std::vector<uint16_t>& depths, int minimum, int maximum)
{
    Histogram histogram;
    histogram.from = minimum;
    histogram.step = (maximum - minimum) / Histogram::kMostBins + 1;
    histogram.counts.resize(static_cast<size_t>((maximum - minimum) / histogram.step + 1));
    for (const uint16_t depth : depths)
        ++histogram.counts[static_cast<size_t>((depth - minimum) / histogram.step)];
    return histogram;
}

} // namespace

Point pointAt(const Point3f& ray, double depth)
{
    constexpr double kMillimetres = 1000; // of a metre
    const double scale = kMillimetres * depth;
    return {scale * ray.x, scale * ray.y, scale * ray.z};
}

RegionFigures figuresOf(const Rectangle& region, const uint16_t* amplitude, const uint16_t* depth, const Point3f* rays)
{
    std::vector<uint16_t> depths;
    std::vector<Point> points;
    int64_t sum = 0, amplitudes = 0;
    for (int y = region.y; y < region.y + region.height; ++y) {
        for (int x = region.x; x < region.x + region.width; ++x) {
            const int i = y * VQD_WIDTH + x;
            const int64_t d = depth[i];
            if (d == 0)
                continue;
            sum += d;
            amplitudes += amplitude[i];
            depths.push_back(depth[i]);
            if (std::isfinite(rays[i].x + rays[i].y + rays[i].z)) // a lens may have no answer for a pixel
                points.push_back(pointAt(rays[i], static_cast<double>(d)));
        }
    }
    RegionFigures figures;
    figures.pixels = region.width * region.height;
    figures.valid = static_cast<int>(depths.size());
    if (depths.empty())
        return figures;
    const auto n = static_cast<int64_t>(depths.size());
    const auto [least, most] = std::ranges::minmax(depths);
    figures.minimum = least;
    figures.maximum = most;
    figures.mean = static_cast<double>(sum) / static_cast<double>(n);
    figures.amplitude = static_cast<double>(amplitudes) / static_cast<double>(n);
    figures.sigmaSpace = deviation(depths, *figures.mean);
    figures.plane = planeThrough(points);
    figures.histogram = histogramOf(depths, least, most);
    return figures;
}
