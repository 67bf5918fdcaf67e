// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What the virtual camera sees: geometry through its lens, and noise that repeats.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "factory_tables.h"
#include "optics.h"
#include "room.h"
#include "scene.h"

using namespace sim;

namespace
{

struct Shot {
    std::vector<uint16_t> amplitude = std::vector<uint16_t>(kPixels), depth = std::vector<uint16_t>(kPixels);
    bool operator==(const Shot&) const = default;
};

Shot shoot(FrameSource& scene, uint64_t index, const char* product = "VQD-HT110")
{
    Shot shot;
    const Image image{};
    scene.render({index, 0, image, product}, std::span(shot.amplitude).first<kPixels>(),
                 std::span(shot.depth).first<kPixels>());
    return shot;
}

TEST(SimLens, UndoesTheDistortionThatTheLensAddsAndGivesUpBeyondItsFold)
{
    const struct {
        double column, row, x, y;
    } cases[] = {
        {160, 120, 0, 0},
        {35.4724655, 26.6043472, -160 / 204.0, -120 / 204.0}, // where the undistorted corners lie in the raw image
        {283.9985, 212.8039, 159 / 204.0, 119 / 204.0},
    };
    for (const auto& c : cases) {
        const Ray ray = rayThrough(Optics{}, c.column, c.row);
        EXPECT_NEAR(ray.x, c.x, 1e-6);
        EXPECT_NEAR(ray.y, c.y, 1e-6);
    }

    const Optics skewed{.k1 = -0.2, .k2 = 0.05, .k3 = 0.01, .p1 = 0.01, .p2 = -0.02};
    const Ray ray = rayThrough(skewed, 250, 60);
    const double x = ray.x, y = ray.y, r2 = x * x + y * y;
    const double radial = 1 + skewed.k1 * r2 + skewed.k2 * r2 * r2 + skewed.k3 * r2 * r2 * r2;
    EXPECT_NEAR((x * radial + 2 * skewed.p1 * x * y + skewed.p2 * (r2 + 2 * x * x)) * 204 + 160, 250, 1e-3);
    EXPECT_NEAR((y * radial + skewed.p1 * (r2 + 2 * y * y) + 2 * skewed.p2 * x * y) * 204 + 120, 60, 1e-3);

    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const Optics& none :
         {Optics{.k1 = -2, .k2 = 0}, Optics{.fx = 0}, Optics{.cy = nan}, Optics{.fx = 1e-300, .k1 = 0, .k2 = 0}})
        EXPECT_TRUE(std::isnan(rayThrough(none, 0, 0).x));
}

TEST(SimScene, ExactScenesAreExactWithoutNoise)
{
    const Shot ramp = shoot(*makeScene({.kind = SceneKind::ramp, .sensor = {.noise = 0}}), 3);
    const Shot plane = shoot(*makeScene({.kind = SceneKind::plane, .sensor = {.noise = 0}}), 3);
    const Shot wall = shoot(*makeScene({.kind = SceneKind::wall, .sensor = {.noise = 0}}), 3);
    for (size_t i = 0; i < kPixels; i++) {
        ASSERT_EQ(ramp.depth[i], 500 + 10 * (i % 320));
        ASSERT_EQ(ramp.amplitude[i], 400 + 2 * (i / 320));
        ASSERT_EQ(plane.depth[i], 1500);
        ASSERT_EQ(plane.amplitude[i], 1000);
        const Ray ray = rayThrough(Optics{}, static_cast<double>(i % 320), static_cast<double>(i / 320));
        ASSERT_NEAR(wall.depth[i] - 0.2 * ray.x * wall.depth[i], 2000, 0.7); // a flat wall in space
    }
}

TEST(SimScene, AHostCorrectedCameraMeasuresAlongTheRayAndTooShort)
{
    const auto depthOf = [](SceneKind kind, bool rawDepth, const char* product) {
        return shoot(*makeScene({.kind = kind, .sensor = {.noise = 0}, .rawDepth = rawDepth}), 3, product).depth;
    };
    const std::vector<uint8_t> factors = orthogonalTable(), offsets = fppnTable();
    ASSERT_EQ(factors.size(), 4096u);
    ASSERT_EQ(offsets.size(), 9600u);
    EXPECT_EQ(factors[0] << 8 | factors[1], 10000);
    EXPECT_EQ(factors[16 * 204] << 8 | factors[16 * 204 + 1], 7071); // 45 degrees off the axis

    const auto plain = depthOf(SceneKind::wall, true, "VQD-HT110"), raw = depthOf(SceneKind::wall, true, "VQD-HT950X");
    EXPECT_EQ(depthOf(SceneKind::wall, false, "VQD-HT950X"), plain);
    EXPECT_EQ(depthOf(SceneKind::ramp, true, "VQD-HT120"), depthOf(SceneKind::ramp, true, "VQD-HT110"));
    for (size_t i = 0; i < kPixels; i++) {
        const Ray ray = rayThrough(Optics{}, static_cast<double>(i % 320), static_cast<double>(i / 320));
        const double column = 204 * ray.x + 160, row = 204 * ray.y + 120, radius = 204 * std::hypot(ray.x, ray.y);
        if (column < 0 || row < 0 || column >= 319 || row >= 239)
            continue; // no undistorted pixel sees it
        const auto at = static_cast<size_t>(8 * radius + 0.5);
        const size_t block = static_cast<size_t>(row + 0.5) / 4 * 80 + static_cast<size_t>(column + 0.5) / 4;
        const double factor = (factors[2 * at] << 8 | factors[2 * at + 1]) / 10000.0;
        ASSERT_NEAR(raw[i] * factor + (offsets[2 * block] << 8 | offsets[2 * block + 1]), plain[i], 3) << i;
    }
}

TEST(SimScene, RepeatsBySeedAndFrameAndDiffersBetweenThem)
{
    const auto scene = makeScene({}), same = makeScene({}), other = makeScene({.seed = 2});
    const Shot shot = shoot(*scene, 7);
    EXPECT_FALSE(shot == shoot(*scene, 8));
    EXPECT_TRUE(shot == shoot(*scene, 7));
    EXPECT_TRUE(shot == shoot(*same, 7));
    EXPECT_FALSE(shot == shoot(*other, 7));
}

TEST(SimScene, DepthNoiseGrowsAsTheAmplitudeFalls)
{
    const Shot exact = shoot(*makeScene({.kind = SceneKind::wall, .sensor = {.noise = 0}}), 3);
    const Shot noisy = shoot(*makeScene({.kind = SceneKind::wall}), 3);
    // What noise adds to the depth of 16 x 16 pixels: the mean and the root of the mean square.
    const auto noise = [&](size_t row, size_t column) {
        double sum = 0, squares = 0;
        for (size_t i = 0; i < 256; i++) {
            const size_t at = (row + i / 16) * 320 + column + i % 16;
            const double added = noisy.depth[at] - exact.depth[at];
            sum += added;
            squares += added * added;
        }
        return std::pair(sum / 256, std::sqrt(squares / 256));
    };
    EXPECT_GT(exact.amplitude[120 * 320 + 160], 4 * exact.amplitude[319]);
    const auto [mean, middle] = noise(112, 152);
    EXPECT_NEAR(mean, 0, 1);
    EXPECT_NEAR(middle, 3.7, 1);
    EXPECT_NEAR(noise(0, 304).second, 57, 10);
}

TEST(SimScene, TheRoomHasAMovingBallFlyingPixelsAndAFewDarkOnes)
{
    const auto room = makeScene({.sensor = {.noise = 0}});
    const Shot now = shoot(*room, 18), later = shoot(*room, 26);
    const auto dark = std::count(now.depth.begin(), now.depth.end(), 0);
    EXPECT_GT(dark, 200);
    EXPECT_LT(dark, static_cast<long>(kPixels / 20));

    // The ball is round and stands in front. Flying pixels lie between it and what is behind it.
    const Ball ball = ballAt(18);
    size_t onBall = 0, flying = 0;
    for (size_t i = 0; i < kPixels; i++) {
        onBall += std::abs(now.depth[i] - ball.z) < 221;
        const bool edge = i % 320 > 0 && i % 320 < 319 && now.depth[i] > ball.z + 300 &&
                          std::min(now.depth[i - 1], now.depth[i + 1]) < ball.z + 221 &&
                          std::max(now.depth[i - 1], now.depth[i + 1]) > now.depth[i] + 300;
        flying += edge && std::min(now.depth[i - 1], now.depth[i + 1]) > 0;
    }
    EXPECT_GT(onBall, 1000u);
    EXPECT_GT(flying, 10u);
    size_t moved = 0;
    for (size_t i = 0; i < kPixels; i++)
        moved += std::abs(now.depth[i] - later.depth[i]) > 1000;
    EXPECT_GT(moved, 500u);
}

TEST(SimScene, AnImpossibleLensSeesNothing)
{
    for (const SceneKind kind : {SceneKind::room, SceneKind::wall}) {
        const double nan = std::numeric_limits<double>::quiet_NaN();
        for (const double noise : {0.0, 1e300, nan, -1.0}) {
            const Shot shot =
                shoot(*makeScene({.kind = kind, .lens = {.fx = 0}, .sensor = {.noise = noise}}), UINT64_MAX);
            if (noise != 1e300) {
                EXPECT_EQ(*std::max_element(shot.depth.begin(), shot.depth.end()), 0);
            }
        }
    }
}

// A wall seen from elsewhere and turned is the same wall in space.
TEST(SimScene, APoseMovesTheCameraNotTheScene)
{
    const Pose pose{{300, -200, 400}, {5, -10, 20}};
    const Placement camera(pose);
    const Shot wall = shoot(*makeScene({.kind = SceneKind::wall, .sensor = {.noise = 0}, .pose = pose}), 3);
    size_t seen = 0;
    for (size_t i = 0; i < kPixels; i++) {
        if (wall.depth[i] == 0)
            continue;
        const auto [from, along] = camera.lineOf(rayThrough(Optics{}, i % 320, i / 320));
        const float depth = wall.depth[i];
        ASSERT_NEAR(from.z + along.z * depth - 0.2 * (from.x + along.x * depth), 2000, 0.8);
        seen++;
    }
    EXPECT_GT(seen, kPixels / 2);
    // Turned about z by a right angle, x becomes y.
    const Vec down = Placement({{}, {0, 0, 90}}).turned({1, 0, 0});
    EXPECT_NEAR(down.y, 1, 1e-6);
    // The room's back wall is 400 mm nearer to who has walked 400 mm towards it.
    const auto ahead = [](const Pose& stand) {
        return shoot(*makeScene({.sensor = {.noise = 0}, .pose = stand}), 3).depth[100 * 320 + 172];
    };
    EXPECT_NEAR(ahead({}) - ahead({{0, 0, 400}, {}}), 400, 1);
}

TEST(SimScene, ABoardIsWhereItsPoseSays)
{
    SceneOptions options{.kind = SceneKind::board, .sensor = {.noise = 0}};
    options.lens.k1 = options.lens.k2 = 0;
    options.board.poses = {{{0, 0, 1000}, {}}, {{0, 0, 1000}, {0, 30, 0}}};
    const auto scene = makeScene(options);
    const Shot flat = shoot(*scene, 9), turned = shoot(*scene, 10);
    const auto at = [](const auto& plane, int column, int row) {
        return plane[static_cast<size_t>(row * 320 + column)];
    };
    // 60 mm at 1 m are 12.24 pixels. The corner of four squares is at the centre between rows 3 and 4.
    EXPECT_EQ(at(flat.depth, 160, 120), 1000);
    EXPECT_GT(at(flat.amplitude, 172, 115), 5 * at(flat.amplitude, 160, 115));
    EXPECT_GT(at(flat.amplitude, 160, 125), 5 * at(flat.amplitude, 172, 125));
    EXPECT_EQ(at(flat.depth, 20, 120), 3500);
    // 100 mm along the turned board.
    const double z = 1000 - 100 * std::sin(M_PI / 6), x = 100 * std::cos(M_PI / 6);
    EXPECT_NEAR(at(turned.depth, static_cast<int>(std::lround(160 + 204 * x / z)), 120), z, 2);
}

// What the figures of a quality report are compared with.
TEST(SimScene, ASensorHasTheErrorsThatItWasGiven)
{
    constexpr int kFrames = 100;
    const auto scene =
        makeScene({.kind = SceneKind::plane,
                   .sensor = {.jitter = 3, .phase = 0, .fixedPattern = 5, .bias = -12, .drift = 0.08, .fill = 0.93}});
    std::vector<double> mean(kPixels), square(kPixels), count(kPixels);
    double first = 0, last = 0;
    for (int frame = 0; frame < kFrames; frame++) {
        const Shot shot = shoot(*scene, static_cast<uint64_t>(frame));
        double sum = 0, valid = 0;
        for (size_t i = 0; i < kPixels; i++)
            if (shot.depth[i] != 0) {
                const double depth = shot.depth[i] - 0.08 * frame;
                mean[i] += depth;
                square[i] += depth * depth;
                count[i]++;
                sum += shot.depth[i];
                valid++;
            }
        (frame == 0 ? first : last) = sum / valid;
    }
    double measured = 0, all = 0, spread = 0, temporal = 0;
    for (size_t i = 0; i < kPixels; i++) {
        measured += count[i];
        mean[i] /= count[i];
        temporal += square[i] / count[i] - mean[i] * mean[i];
        all += mean[i];
    }
    for (const double value : mean)
        spread += (value - all / kPixels) * (value - all / kPixels);
    EXPECT_NEAR(measured / kPixels / kFrames, 0.93, 0.001);
    EXPECT_NEAR(all / kPixels, 1500 - 12, 0.1);
    EXPECT_NEAR(std::sqrt(temporal / kPixels), 3, 0.05);
    EXPECT_NEAR(std::sqrt(spread / kPixels), 5, 0.05);
    EXPECT_NEAR(last - first, 0.08 * (kFrames - 1), 0.1);
}

} // namespace
