// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Measures how straight an edge and how flat a wall have become.
#pragma once

#include <algorithm>
#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "VQD_API.h"
#include "sim/optics.h"
#include "sim/scene.h"

// Everything below a sloping line is bright; the line's image is sharp to a quarter of a pixel.
struct Horizon : sim::FrameSource {
    static constexpr float kHeight = -0.5f, kSlope = 0.1f;

    void render(const sim::FrameRequest&, std::span<uint16_t, sim::kPixels> amplitude,
                std::span<uint16_t, sim::kPixels> depth) override
    {
        static const auto rays = sim::rawRays({});
        for (size_t i = 0; i < sim::kPixels; ++i) {
            const float pixels = 204 * (rays[i].y - kHeight - kSlope * rays[i].x);
            amplitude[i] = static_cast<uint16_t>(1000 + 1000 * std::clamp(pixels + 0.5f, 0.0f, 1.0f));
            depth[i] = 2000;
        }
    }
};

// The largest distance, in rows, between the image of the horizon and the straight line that it should be.
inline double bend(const uint16_t* amplitude)
{
    constexpr int kHalf = 1500, kFirst = 2; // the top may look past the raw image
    double worst = 0;
    for (int column = 5; column < 315; ++column) {
        double edge = -1000; // no edge was found
        for (int row = kFirst; row < 239 && edge < 0; ++row) {
            const int above = amplitude[320 * row + column], below = amplitude[320 * (row + 1) + column];
            if (above > 0 && above < kHalf && below >= kHalf)
                edge = row + static_cast<double>(kHalf - above) / (below - above);
        }
        const double straight = 120 + 204 * Horizon::kHeight + Horizon::kSlope * static_cast<float>(column - 160);
        worst = std::max(worst, std::fabs(edge - straight));
    }
    return worst;
}

// How far, in mm, the cloud of the wall scene lies from a plane with the wall's tilt, along the library's rays.
inline double roughness(const uint16_t* depth)
{
    std::vector<Point3f> cloud(VQD_PIXELS);
    vqdDepthFrameToCameraSpace(depth, cloud.data(), 320, 240);
    double points = 0, sum = 0, squares = 0;
    for (const Point3f& p : cloud)
        if (p.z > 0) {
            const double off = 1000 * (p.z - 0.2 * p.x);
            ++points;
            sum += off;
            squares += off * off;
        }
    EXPECT_GT(points, 60'000);
    return std::sqrt(squares / points - sum / points * (sum / points));
}
