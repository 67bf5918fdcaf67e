// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What one frame says of a part of the image.
#pragma once

#include <optional>
#include <vector>

#include "measure/plane.h"

// Pixels of the image; inside it, and not empty.
struct Rectangle {
    int x, y, width, height;
};

constexpr size_t kMostRegions = 8, kMostRegionName = 64; // at a time; bytes

struct Histogram {
    static constexpr int kMostBins = 64;
    int from = 0, step = 1; // mm
    std::vector<int> counts;
};

// Of the pixels with a depth. What cannot be computed is missing. Lengths are in mm.
struct RegionFigures {
    int pixels = 0, valid = 0;
    int minimum = 0, maximum = 0;                      // 0 without a valid pixel
    std::optional<double> mean, amplitude, sigmaSpace; // the last: standard deviation of the depth
    std::optional<FittedPlane> plane;
    std::optional<Histogram> histogram;
};

// The point of a pixel in mm, from its point at 1 mm depth in metres.
Point pointAt(const Point3f& ray, double depth);

// Both planes are VQD_WIDTH x VQD_HEIGHT. `rays` are the points of all pixels at 1 mm depth, in metres; the plane
// leaves out those that are not finite.
RegionFigures figuresOf(const Rectangle& region, const uint16_t* amplitude, const uint16_t* depth, const Point3f* rays);
