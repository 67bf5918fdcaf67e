// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Several runs as curves over the distance.
#pragma once

#include "quality.h"

// One region of one camera, from near to far.
struct QualityCurve {
    struct Point {
        double distance; // mm: the known one, or else that of the plane
        std::string file;
        std::array<Figure, kMetricCount> figures;
    };
    std::string serial, region;
    std::vector<Point> points;

    std::string name() const { return serial + ", " + region; }
};

// Fails with a usage error for a region of which no distance is known.
std::vector<QualityCurve> curvesOf(std::span<const QualityReport> reports);

// A table for each curve, with a column for each distance.
std::string curvesText(std::span<const QualityCurve> curves);
Json curvesJson(std::span<const QualityCurve> curves);
