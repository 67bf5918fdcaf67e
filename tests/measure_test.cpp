// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Figures of regions against values that were worked out by hand or by geometry.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "measure/region.h"
#include "measure/temporal_noise.h"

namespace
{

constexpr Rectangle kAll{0, 0, VQD_WIDTH, VQD_HEIGHT};

struct Frame {
    std::vector<uint16_t> amplitude = std::vector<uint16_t>(VQD_PIXELS), depth = std::vector<uint16_t>(VQD_PIXELS);
    std::vector<Point3f> rays = std::vector<Point3f>(VQD_PIXELS);

    Frame()
    {
        for (int i = 0; i < VQD_PIXELS; ++i)
            rays[static_cast<size_t>(i)] = {(static_cast<float>(i % VQD_WIDTH) - 160) / 200 / 1000,
                                            (120 - static_cast<float>(i / VQD_WIDTH)) / 200 / 1000, 0.001f};
    }
    uint16_t& depthAt(int x, int y) { return depth[static_cast<size_t>(y * VQD_WIDTH + x)]; }
    RegionFigures figures(const Rectangle& region) const
    {
        return figuresOf(region, amplitude.data(), depth.data(), rays.data());
    }
};

} // namespace

TEST(Measure, ARegionCountsItsOwnPixelsAndOnlyValidOnes)
{
    Frame frame;
    std::fill(frame.depth.begin(), frame.depth.end(), uint16_t{9999});
    const int depths[2][3] = {{1000, 1002, 0}, {1004, 0, 1006}}; // at (10, 20)
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x)
            frame.depthAt(10 + x, 20 + y) = static_cast<uint16_t>(depths[y][x]);
    frame.amplitude[20 * VQD_WIDTH + 10] = 400;
    frame.amplitude[20 * VQD_WIDTH + 12] = 8000; // of a pixel without depth
    const RegionFigures figures = frame.figures({10, 20, 3, 2});
    EXPECT_EQ(figures.pixels, 6);
    EXPECT_EQ(figures.valid, 4);
    EXPECT_EQ(figures.minimum, 1000);
    EXPECT_EQ(figures.maximum, 1006);
    EXPECT_DOUBLE_EQ(*figures.mean, 1003);
    EXPECT_DOUBLE_EQ(*figures.amplitude, 100);
    EXPECT_DOUBLE_EQ(*figures.sigmaSpace, std::sqrt(20.0 / 3)); // 9 + 1 + 1 + 9, divided by one less than four
    EXPECT_EQ(figures.histogram->from, 1000);
    EXPECT_EQ(figures.histogram->counts, (std::vector<int>{1, 0, 1, 0, 1, 0, 1}));
}

TEST(Measure, ExtremesDoNotOverflow)
{
    Frame frame;
    for (int i = 0; i < VQD_PIXELS; ++i)
        frame.depth[static_cast<size_t>(i)] = i % 2 != 0 ? 65535 : 1;
    const RegionFigures figures = frame.figures(kAll);
    EXPECT_DOUBLE_EQ(*figures.mean, 32768);
    EXPECT_NEAR(*figures.sigmaSpace, 32767, 1);
    EXPECT_EQ(figures.histogram->counts.size(), 64U);
    EXPECT_EQ(figures.histogram->counts.front() + figures.histogram->counts.back(), VQD_PIXELS);
    TemporalNoise noise;
    for (int i = 0; i < 60; ++i) {
        std::fill(frame.depth.begin(), frame.depth.end(), static_cast<uint16_t>(i % 2 != 0 ? 65535 : 1));
        noise.add(frame.depth.data());
    }
    EXPECT_NEAR(*noise.sigma(kAll), 32767 * std::sqrt(30.0 / 29), 0.01);
}

TEST(Measure, WithoutDepthNothingIsMadeUp)
{
    Frame frame;
    const RegionFigures none = frame.figures(kAll);
    EXPECT_EQ(none.valid, 0);
    EXPECT_FALSE(none.mean || none.amplitude || none.sigmaSpace || none.plane || none.histogram);
    frame.depthAt(5, 5) = 700;
    EXPECT_FALSE(frame.figures(kAll).sigmaSpace);
    frame.depthAt(6, 5) = frame.depthAt(7, 5) = 700; // on a line
    EXPECT_TRUE(frame.figures(kAll).sigmaSpace);
    EXPECT_FALSE(frame.figures(kAll).plane);
    frame.rays[5 * VQD_WIDTH + 5].x = std::numeric_limits<float>::infinity(); // of a lens without a focal length
    EXPECT_FALSE(frame.figures(kAll).plane);                                  // that pixel is left out
    frame.depthAt(6, 9) = 700;
    EXPECT_TRUE(frame.figures(kAll).plane);
    for (Point3f& ray : frame.rays)
        ray.x = std::numeric_limits<float>::infinity();
    EXPECT_FALSE(frame.figures(kAll).plane);
}

TEST(Measure, APlaneIsFittedAtRightAngles)
{
    // A wall that stands at an angle: z = 1500 + tan(a) * x; a ray x = t * z meets it at z = 1500 / (1 - t * tan(a)).
    for (const double degrees : {0.0, 12.5, 50.0}) {
        const double slope = std::tan(degrees * std::numbers::pi / 180);
        for (const double noise : {0.0, 5.0}) {
            std::vector<Point> points;
            for (int i = 0; i < VQD_PIXELS; ++i) {
                const double tx = (i % VQD_WIDTH - 160) / 200.0, ty = (i / VQD_WIDTH - 120) / 200.0;
                if (std::abs(tx) > 0.3 || std::abs(ty) > 0.3)
                    continue;
                const double z = 1500 / (1 - tx * slope), off = (i % 2 != 0 ? 1 : -1) * noise; // off along the normal
                const double c = std::cos(std::atan(slope)), s = std::sin(std::atan(slope));
                points.push_back({tx * z - s * off, ty * z, z + c * off});
            }
            const auto plane = planeThrough(points);
            ASSERT_TRUE(plane);
            EXPECT_NEAR(plane->tilt, degrees, 0.01) << noise;
            EXPECT_NEAR(plane->rms, noise, 0.01) << degrees;
        }
    }
}

TEST(Measure, NoiseOverTimeIsThatOfEachPixelAndForgetsWhatIsOld)
{
    TemporalNoise noise;
    std::vector<uint16_t> depth(VQD_PIXELS);
    const auto add = [&](int first, int second) {
        for (size_t i = 0; i < VQD_PIXELS; ++i)
            depth[i] = static_cast<uint16_t>(i % VQD_WIDTH); // a slope, which is no noise
        depth[0] = static_cast<uint16_t>(first);
        depth[1] = static_cast<uint16_t>(second);
        noise.add(depth.data());
    };
    add(1000, 500);
    EXPECT_FALSE(noise.sigma(kAll));
    add(1004, 0); // the second pixel had a depth only once
    EXPECT_DOUBLE_EQ(*noise.sigma({0, 0, 2, 1}), std::sqrt(8.0));
    EXPECT_DOUBLE_EQ(*noise.sigma({2, 0, 40, 1}), 0);
    EXPECT_EQ(noise.frames(), 2);
    for (int i = 0; i < TemporalNoise::kWindow; ++i)
        add(2000, 500);
    EXPECT_DOUBLE_EQ(*noise.sigma({0, 0, 2, 1}), 0); // the two frames have left the window
    noise.forget();
    EXPECT_EQ(noise.frames(), 0);
    add(3000, 500);
    EXPECT_FALSE(noise.sigma(kAll));
}
