// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What one frame says of a part of the image.
#pragma once

#include <array>
#include <optional>
#include <vector>

#include "measure/plane.h"

// Pixels of the image; inside it, and not empty.
struct Rectangle {
    int x, y, width, height;
};

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
    std::optional<Plane> plane;
    std::optional<Histogram> histogram;
};

// Both planes are VQD_WIDTH x VQD_HEIGHT. `rays` are the points of all pixels at 1 mm depth, in metres.
RegionFigures figuresOf(const Rectangle& region, const uint16_t* amplitude, const uint16_t* depth, const Point3f* rays);
