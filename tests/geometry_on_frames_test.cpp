// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// After undistortion and the corrections, straight edges of a scene are straight and flat walls are flat.
#include "support/geometry_measures.h"
#include "support/library_test.h"

namespace
{

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

    double bend() const { return ::bend(amplitude.data()); }
    double roughness() const { return ::roughness(depth.data()); }
};

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
    grab("VQD-HT110", sim::makeScene({.kind = sim::SceneKind::wall, .sensor = {.noise = 0}}));
    read(2);
    EXPECT_LT(roughness(), 0.5);
    read(0);
    EXPECT_GT(roughness(), 10);
}

TEST_F(GeometryOnFrames, BothCorrectionsFlattenTheWallOfAHostCorrectedCamera)
{
    grab("VQD-HT120", sim::makeScene({.kind = sim::SceneKind::wall, .sensor = {.noise = 0}}));
    const auto with = [&](int fppn, int orthogonal) {
        EXPECT_EQ(vqdSetFPPN(0, fppn), 1);
        EXPECT_EQ(vqdSetOrthogonal(0, orthogonal), 1);
        read(2);
        return roughness();
    };
    const double none = with(0, 0), fppn = with(1, 0), orthogonal = with(0, 1), both = with(1, 1);
    EXPECT_LT(both, none / 5);
    EXPECT_LT(both, orthogonal / 5); // each of them contributes
    EXPECT_LT(both, fppn / 5);
    EXPECT_LT(both, 2);
    const size_t centre = 120 * 320 + 160;
    EXPECT_NEAR(depth[centre], 2000, 2);
}

} // namespace
