// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What undistortion and the corrections make of a scene: straight edges straight and flat walls flat.
#include <algorithm>
#include <cmath>

#include "sim/lens_model.h"
#include "sim/scene.h"
#include "support/library_test.h"

namespace
{

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

class GeometryOnFrames : public LibraryTest
{
protected:
    void grab(const char* product, std::shared_ptr<sim::FrameSource> source)
    {
        sim::Config config;
        config.product = product;
        config.source = std::move(source);
        openCamera(config);
        EXPECT_EQ(vqdGrabStart(0), 1);
    }

    void read(int mode)
    {
        EXPECT_EQ(vqdSetUndistortion(0, mode), 1);
        EXPECT_EQ(vqdReadFromDevice(0, images.data(), &info), 1);
    }

    // Largest distance in rows of the edge from the straight line that fits it best.
    double bend() const;

    // Root mean square distance in mm of the cloud from the plane that fits it best.
    double roughness() const;
};

// The row, between pixels, at which a column becomes bright.
double edgeRow(const uint16_t* amplitude, int column)
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
std::array<double, 3> fit(const std::vector<std::array<double, 3>>& points)
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

double GeometryOnFrames::bend() const
{
    std::vector<std::array<double, 3>> edge;
    for (int column = 5; column < 315; ++column)
        edge.push_back({static_cast<double>(column), 0, edgeRow(amplitude.data(), column)});
    const auto line = fit(edge);
    double worst = 0;
    for (const auto& [column, unused, row] : edge)
        worst = std::max(worst, std::fabs(row - line[0] - line[1] * column));
    return worst;
}

double GeometryOnFrames::roughness() const
{
    std::vector<Point3f> cloud(VQD_PIXELS);
    vqdDepthFrameToCameraSpace(depth.data(), cloud.data(), 320, 240);
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

TEST_F(GeometryOnFrames, AStraightEdgeIsStraightOnceUndistorted)
{
    grab("VQD-HT110", std::make_shared<Horizon>());
    for (const int mode : {1, 2, 3}) {
        read(mode);
        EXPECT_LT(bend(), mode == 3 ? 1.0 : 0.7) << mode; // the nearest sample may be half a pixel off
    }
    read(0);
    EXPECT_GT(bend(), 5);
}

TEST_F(GeometryOnFrames, AFlatWallIsFlatOnceUndistorted)
{
    grab("VQD-HT110", sim::makeScene({.kind = sim::SceneKind::wall, .noise = 0}));
    read(2);
    EXPECT_LT(roughness(), 0.5);
    read(0);
    EXPECT_GT(roughness(), 10);
}

TEST_F(GeometryOnFrames, TheNoiseOfAWallIsAllThatIsLeft)
{
    grab("VQD-HT110", sim::makeScene({.kind = sim::SceneKind::wall}));
    read(0);
    const auto noisy = depth;
    const double bent = roughness();
    read(2);
    const auto quiet = sim::makeScene({.kind = sim::SceneKind::wall, .noise = 0});
    std::array<uint16_t, VQD_PIXELS> exact{}, light{};
    quiet->render({0, 0, usb.camera(0).registers, "VQD-HT110"}, light, exact);
    double squares = 0;
    for (size_t i = 0; i < noisy.size(); ++i)
        squares += noisy[i] == 0 ? 0 : std::pow(noisy[i] - exact[i], 2);
    const double noise = std::sqrt(squares / static_cast<double>(noisy.size()));
    EXPECT_LT(roughness(), noise);
    EXPECT_GT(bent, 1.5 * noise);
}

TEST_F(GeometryOnFrames, BothCorrectionsFlattenTheWallOfAHostCorrectedCamera)
{
    grab("VQD-HT120", sim::makeScene({.kind = sim::SceneKind::wall, .noise = 0}));
    const auto with = [&](int fppn, int orthogonal) {
        EXPECT_EQ(vqdSetFPPN(0, fppn), 1);
        EXPECT_EQ(vqdSetOrthogonal(0, orthogonal), 1);
        read(2);
        return roughness();
    };
    const double none = with(0, 0), fppn = with(1, 0), orthogonal = with(0, 1), both = with(1, 1);
    EXPECT_LT(both, none / 5);
    EXPECT_LT(both, orthogonal / 5); // each has its share
    EXPECT_LT(both, fppn / 5);
    EXPECT_LT(both, 2);
    const size_t centre = 120 * 320 + 160;
    EXPECT_NEAR(depth[centre], 2000, 2);
}

} // namespace
