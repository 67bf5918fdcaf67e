// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Depth pixels and points in space, the extrinsic transform, and the ray table.
#include <cmath>

#include "support/library_test.h"

// Points compare by value.
static bool operator==(const Point3f& a, const Point3f& b)
{
    return a.x == b.x && a.y == b.y && a.z == b.z;
}
static void PrintTo(const Point3f& p, std::ostream* out)
{
    *out << "(" << p.x << ", " << p.y << ", " << p.z << ")";
}

namespace
{

constexpr LensIntrinsic kRound{200, 200, 160, 120};
constexpr LensIntrinsic kOdd{204.5f, 203.7f, 160.3f, 119.6f};
constexpr Point3f kUnwritten{-77, -77, -77};

TEST(Coordinates, PixelsBecomePointsAndPointsPixels)
{
    const struct {
        Point3f pixel, point;
        LensIntrinsic lens;
    } cases[] = {
        {{260, 20, 2000}, {1, 1, 2}, kRound}, // right of the centre and above it: both positive
        {{60, 220, 2000}, {-1, -1, 2}, kRound}, {{160, 120, 1500}, {0, 0, 1.5f}, kRound},
        {{7, 9, 0}, {0, 0, 0}, kRound},         {{6, 0, 1000}, {-0.754523218f, 0.587137938f, 1}, kOdd},
    };
    for (const auto& c : cases) {
        Point3f point = kUnwritten;
        vqdDepthPointToCameraSpace(&point, c.pixel, c.lens);
        EXPECT_FLOAT_EQ(point.x, c.point.x);
        EXPECT_FLOAT_EQ(point.y, c.point.y);
        EXPECT_EQ(point.z, c.point.z);
        if (c.pixel.z == 0)
            continue;
        Point3f pixel = kUnwritten;
        vqdCameraSpacePointToDepth(&pixel, c.point, c.lens); // half a pixel is added, so that truncation rounds
        EXPECT_FLOAT_EQ(pixel.x, c.pixel.x + 0.5f);
        EXPECT_FLOAT_EQ(pixel.y, c.pixel.y + 0.5f);
        EXPECT_EQ(pixel.z, c.pixel.z);
    }
}

TEST(Coordinates, ZerosGiveWhatArithmeticGives)
{
    Point3f out = kUnwritten;
    vqdCameraSpacePointToDepth(&out, {1, 1, 0}, kRound);
    EXPECT_TRUE(std::isinf(out.x) && out.x > 0 && std::isinf(out.y) && out.y < 0 && out.z == 0);
    vqdCameraSpacePointToDepth(&out, {0, 0, 0}, kRound);
    EXPECT_TRUE(std::isnan(out.x) && std::isnan(out.y));
    vqdDepthPointToCameraSpace(&out, {260, 20, 2000}, {});
    EXPECT_TRUE(std::isinf(out.x) && std::isinf(out.y) && out.z == 2);
}

bool same(const ExtrinsicParam& a, const ExtrinsicParam& b)
{
    const auto* x = &a.r11;
    const auto* y = &b.r11;
    return std::equal(x, x + 12, y);
}

TEST(Coordinates, TransformsAndTheirReverse)
{
    const ExtrinsicParam quarter{0, -1, 0, 1, 0, 0, 0, 0, 1, 1, 0, 0};
    const ExtrinsicParam back{0, 1, 0, -1, 0, 0, 0, 0, 1, -1, 0, 0};
    const ExtrinsicParam shear{1, 2, 3, 0, 1, 4, 5, 6, 0, 0.5f, -2, 4}; // determinant 1, but no rotation
    const ExtrinsicParam stretch{2, 0, 0, 0, 3, 0, 0, 0, 5, 0, 0, 0};   // the adjugate is not divided by 30
    EXPECT_TRUE(same(vqdGetReverse(quarter), back));
    EXPECT_TRUE(same(vqdGetReverse(shear), {-24, 18, 5, 20, -15, -4, -5, 4, 1, -0.5f, 2, -4}));
    EXPECT_TRUE(same(vqdGetReverse(stretch), {15, 0, 0, 0, 10, 0, 0, 0, 6, 0, 0, 0}));
    EXPECT_TRUE(same(vqdGetReverse({1, 0, 0, 0, 1, 0, 0, 0, 1, 0.1f, 0, 0}), {1, 0, 0, 0, 1, 0, 0, 0, 1, -0.1f, 0, 0}));

    const struct {
        ExtrinsicParam transform;
        Point3f from, to;
    } cases[] = {
        {quarter, {0, 0, 0}, {1, 0, 0}}, {back, {1, 0, 0}, {-1, -1, 0}}, {shear, {1, 10, 100}, {321.5f, 408, 69}}};
    for (const auto& c : cases) {
        Point3f to = c.from;
        vqdXYZ3DConversion(&to, to, c.transform);
        EXPECT_EQ(to, c.to);
    }
}

TEST(Coordinates, RaysAreDividedTwice)
{
    BuildPointCloudTable(kOdd);
    EXPECT_EQ(pPointCloud[6].x, -0.000754523207f); // ...266 with one division
    BuildPointCloudTable({});                      // no lens at all
    EXPECT_FALSE(std::isfinite(pPointCloud[0].x));
}

class FrameToPoints : public testing::Test
{
protected:
    FrameToPoints()
    {
        BuildPointCloudTable(kOdd);
        for (size_t i = 0; i < depth.size(); ++i)
            depth[i] = static_cast<uint16_t>(i * 40503 >> 3);
    }

    // How many points up to `count` are not the ray times the depth, and how many behind that are written.
    long wrong(size_t count) const
    {
        long wrong = 0;
        for (size_t i = 0; i < points.size(); ++i) {
            const float d = depth[i];
            const Point3f ray = pPointCloud[i % VQD_PIXELS];
            const Point3f expected = i < count ? Point3f{ray.x * d, ray.y * d, d * ray.z} : kUnwritten;
            wrong += !(points[i] == expected);
        }
        return wrong;
    }

    std::vector<uint16_t> depth = std::vector<uint16_t>(400 * 240);
    std::vector<Point3f> points = std::vector<Point3f>(400 * 240, kUnwritten);
};

TEST_F(FrameToPoints, OneRunningIndexWhateverTheWidth)
{
    const struct {
        int width, height;
        size_t written;
        // Nothing is touched beyond the rays.
    } cases[] = {{320, 240, 76800},    {160, 2, 320},     {1, 1, 1},         {3, 3, 9},
                 {0, 240, 0},          {320, 0, 0},       {-1, -1, 0},       {-5, 10, 0},
                 {320, INT32_MIN, 0},  {400, 240, 76800}, {76801, 1, 76800}, {INT32_MAX, INT32_MAX, 76800},
                 {65536, 65536, 76800}};
    for (const auto& c : cases) {
        points.assign(points.size(), kUnwritten);
        vqdDepthFrameToCameraSpace(depth.data(), points.data(), c.width, c.height);
        EXPECT_EQ(wrong(c.written), 0) << c.width << " x " << c.height;
    }
}

TEST_F(FrameToPoints, TheTableMultipliesWhereThePointDivides)
{
    const size_t centre = 120 * 320 + 160;
    BuildPointCloudTable(kRound);
    depth[centre] = 1500;
    depth[centre + 1] = 0;
    vqdDepthFrameToCameraSpace(depth.data(), points.data(), 320, 240);
    EXPECT_EQ(points[centre], (Point3f{0, 0, 1.5000001f}));
    EXPECT_EQ(points[centre + 1], (Point3f{0, 0, 0}));
    vqdDepthPointToCameraSpace(points.data(), {160, 120, 1500}, kRound);
    EXPECT_EQ(points[0], (Point3f{0, 0, 1.5f}));
}

} // namespace
