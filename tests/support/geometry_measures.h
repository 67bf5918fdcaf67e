// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// How straight an edge and how flat a wall came out.
#pragma once

#include <algorithm>
#include <array>
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

// The row, between pixels, at which a column becomes bright.
inline double edgeRow(const uint16_t* amplitude, int column)
{
    constexpr int kHalf = 1500, kFirst = 2; // the top may look past the raw image
    for (int row = kFirst; row < 239; ++row) {
        const int above = amplitude[320 * row + column], below = amplitude[320 * (row + 1) + column];
        if (above > 0 && above < kHalf && below >= kHalf)
            return row + static_cast<double>(kHalf - above) / (below - above);
    }
    return std::nan("");
}

// Solves for x in the least squares sense: z = x0 + x1 * a + x2 * b.
inline std::array<double, 3> fit(const std::vector<std::array<double, 3>>& points)
{
    double m[3][4] = {};
    for (const auto& [a, b, z] : points) {
        const double row[4] = {1, a, b, z};
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 4; ++j)
                m[i][j] += row[i] * row[j];
    }
    for (int pivot = 0; pivot < 3; ++pivot)
        for (int i = 0; i < 3; ++i) {
            const double factor = i == pivot || m[pivot][pivot] == 0 ? 0 : m[i][pivot] / m[pivot][pivot];
            for (int j = 0; j < 4; ++j)
                m[i][j] -= factor * m[pivot][j];
        }
    std::array<double, 3> x{};
    for (size_t i = 0; i < 3; ++i)
        x[i] = m[i][i] == 0 ? 0 : m[i][3] / m[i][i];
    return x;
}

// Largest distance in rows of the horizon from the straight line that fits it best.
inline double bend(const uint16_t* amplitude)
{
    std::vector<std::array<double, 3>> edge;
    for (int column = 5; column < 315; ++column)
        edge.push_back({static_cast<double>(column), 0, edgeRow(amplitude, column)});
    const auto line = fit(edge);
    double worst = 0;
    for (const auto& [column, unused, row] : edge)
        worst = std::max(worst, std::fabs(row - line[0] - line[1] * column));
    return worst;
}

// Root mean square distance in mm of the cloud, through the library's rays, from the plane that fits it best.
inline double roughness(const uint16_t* depth)
{
    std::vector<Point3f> cloud(VQD_PIXELS);
    vqdDepthFrameToCameraSpace(depth, cloud.data(), 320, 240);
    std::vector<std::array<double, 3>> points;
    for (const Point3f& p : cloud)
        if (p.z > 0)
            points.push_back({p.x, p.y, p.z});
    EXPECT_GT(points.size(), 60'000u);
    const auto plane = fit(points);
    double squares = 0;
    for (const auto& [x, y, z] : points) {
        const double off = z - plane[0] - plane[1] * x - plane[2] * y;
        squares += off * off;
    }
    return 1000 * std::sqrt(squares / static_cast<double>(points.size()));
}
