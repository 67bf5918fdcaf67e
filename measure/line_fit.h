// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Straight lines: how something changes over time or temperature, and how a variance grows.
#pragma once

#include <optional>
#include <span>
#include <vector>

struct Line {
    double intercept, slope;
    double interceptError = 0, slopeError = 0; // standard uncertainties; 0 when they are not known

    double at(double x) const { return intercept + slope * x; }
};

// The least squares. Nothing for fewer than two values of x. As many y as x.
std::optional<Line> lineThrough(std::span<const double> x, std::span<const double> y);

// A variance that was estimated from so many pairs of frames, where something else is x.
struct Variance {
    double x, variance, pairs;
};

// The variance as a line over x. An estimate counts the less the larger the variance is that the line expects of it;
// those that are far above the line, as where something moved, do not count. Nothing without several values of x.
std::optional<Line> varianceOver(std::span<const Variance> samples);
