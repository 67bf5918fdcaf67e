// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The quality of depth against scenes whose errors are known, because they were put in.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "measure/flying_pixels.h"
#include "measure/lens_rays.h"
#include "measure/quality.h"
#include "sim/scene.h"

namespace
{

constexpr Rectangle kAll{0, 0, VQD_WIDTH, VQD_HEIGHT};

struct Planes {
    std::vector<uint16_t> amplitude = std::vector<uint16_t>(VQD_PIXELS), depth = std::vector<uint16_t>(VQD_PIXELS);
};

std::vector<Point3f> raysOf(const sim::Optics& lens)
{
    const auto f = [](double value) { return static_cast<float>(value); };
    return distortedRays({f(lens.fx), f(lens.fy), f(lens.cx), f(lens.cy)},
                         {f(lens.k1), f(lens.k2), f(lens.k3), f(lens.p1), f(lens.p2), 0});
}

QualityRun runOf(const sim::SceneOptions& options, int frames, const Rectangle& region = kAll)
{
    const std::shared_ptr<sim::FrameSource> scene = makeScene(options);
    const sim::Image image{};
    const std::string product = "VQD-HT110";
    Planes planes;
    QualityRun run({region}, raysOf(options.lens));
    for (int i = 0; i < frames; ++i) {
        scene->render({static_cast<uint64_t>(i), {}, image, product},
                      std::span<uint16_t, sim::kPixels>(planes.amplitude),
                      std::span<uint16_t, sim::kPixels>(planes.depth));
        run.add(planes.amplitude.data(), planes.depth.data(), i, 38 + 0.05 * i);
    }
    return run;
}

sim::SceneOptions wall(double slope, const sim::SensorModel& sensor)
{
    return {.kind = sim::SceneKind::wall, .sensor = sensor, .wallSlope = slope};
}

} // namespace

TEST(Quality, WhatWasPutInIsFoundWithin3Percent)
{
    constexpr double kDrift = 0.08;
    const struct {
        sim::SceneOptions scene;
        std::vector<std::pair<Metric, double>> truths;
    } cases[] = {
        {wall(0.2, {}),
         {{Metric::distance, 2000},
          {Metric::tilt, 11.3099},
          {Metric::readOut, 6},
          {Metric::shot, 0.2},
          {Metric::jitter, 2},
          {Metric::phase, 2500}}},
        {wall(0, {.readOut = 20, .shot = 0.6, .jitter = 5, .phase = 900, .bias = 5}),
         {{Metric::readOut, 20}, {Metric::shot, 0.6}, {Metric::jitter, 5}, {Metric::phase, 900}, {Metric::bias, 5}}},
        {wall(0.2, {.fixedPattern = 3, .bias = -12, .fill = 0.93}),
         {{Metric::fixedPattern, 3}, {Metric::bias, -12}, {Metric::fillRate, 93}}},
        {wall(0.2, {.drift = kDrift}),
         {{Metric::drift, kDrift * 59},
          {Metric::driftRate, kDrift * 60}, // a frame each second
          {Metric::temperatureDrift, kDrift / 0.05},
          {Metric::repeatability, kDrift * 17.46}}}, // the deviation of the numbers 1 to 60
        {{.kind = sim::SceneKind::plane, .sensor = {.jitter = 4, .phase = 0}},
         {{Metric::noise, std::hypot(4, 0.289)}, {Metric::planeRms, std::hypot(4, 0.289)}}}, // and the rounding
    };
    for (const auto& c : cases) {
        const RegionQuality quality = runOf(c.scene, 60).of(0, 2000);
        for (const auto& [metric, truth] : c.truths) {
            const Figure& figure = quality.of(metric);
            ASSERT_TRUE(figure.value) << rowOf(metric).name << ": " << figure.reason;
            EXPECT_NEAR(*figure.value, truth, 0.03 * std::abs(truth)) << rowOf(metric).name;
        }
    }
    // A drift is no noise of single frames, and noise that averages out is no pattern.
    const RegionQuality steady = runOf(wall(0.2, {}), 60).of(0, {});
    EXPECT_NEAR(*runOf(wall(0.2, {.drift = kDrift}), 60).of(0, {}).of(Metric::noise).value,
                *steady.of(Metric::noise).value, 0.02);
    EXPECT_LT(*steady.of(Metric::fixedPattern).value, 0.2);
}

TEST(Quality, EveryParameterOfTheLensCounts)
{
    sim::SceneOptions scene = wall(0.4, {.noise = 0});
    scene.lens = {
        .fx = 210, .fy = 200, .cx = 150, .cy = 130, .k1 = -0.3, .k2 = 0.1, .k3 = 0.01, .p1 = 0.01, .p2 = -0.02};
    const RegionQuality exact = runOf(scene, 2).of(0, {});
    EXPECT_NEAR(*exact.of(Metric::distance).value, 2000, 0.05);
    EXPECT_LT(*exact.of(Metric::flatness).value, 0.4); // depth is in whole mm
    const std::vector<Point3f> rays = raysOf(scene.lens),
                               flipped = distortedRays({210, 200, 150, 130}, {-0.3f, 0.1f, 0.01f, 0.01f, -0.02f, 0},
                                                       {.horizontal = true, .vertical = true});
    EXPECT_EQ(flipped[3 * VQD_WIDTH + 5].x, rays[236 * VQD_WIDTH + 314].x);
    EXPECT_EQ(flipped[3 * VQD_WIDTH + 5].y, rays[236 * VQD_WIDTH + 314].y);
    // Beyond the fold of a strong lens there is no direction, and the figures do without these pixels.
    const std::vector<Point3f> strong = distortedRays({204, 204, 160, 120}, {-1, 0, 0, 0, 0, 0});
    EXPECT_TRUE(std::isnan(strong[0].x));
    EXPECT_TRUE(std::isfinite(strong[120 * VQD_WIDTH + 160].x));
    QualityRun run({kAll}, strong);
    Planes planes;
    std::fill(planes.depth.begin(), planes.depth.end(), uint16_t{1500});
    run.add(planes.amplitude.data(), planes.depth.data(), 0, 38);
    EXPECT_NEAR(*run.of(0, {}).of(Metric::distance).value, 1500, 0.01);
}

TEST(Quality, WhatCannotBeSaidHasAReasonAndNothingIsNotANumber)
{
    const sim::SceneOptions scene = wall(0.2, {.fill = 0.97});
    const auto reasonOf = [](const RegionQuality& quality, Metric metric) {
        EXPECT_FALSE(quality.of(metric).value) << rowOf(metric).name;
        return quality.of(metric).reason;
    };
    const RegionQuality single = runOf(scene, 1).of(0, {});
    EXPECT_EQ(reasonOf(single, Metric::noise), "it needs 2 frames, and there are 1");
    EXPECT_EQ(reasonOf(single, Metric::drift), "it needs 10 frames, and there are 1");
    EXPECT_EQ(reasonOf(single, Metric::bias), "the known distance was not given");
    const RegionQuality small = runOf(scene, 10, {160, 120, 20, 20}).of(0, {});
    EXPECT_NE(reasonOf(small, Metric::shot).find("too alike"), std::string::npos);
    EXPECT_NE(reasonOf(small, Metric::driftRate).find("it needs 10 s"), std::string::npos);
    const RegionQuality dark = runOf(wall(0, {.fill = 0}), 12).of(0, 2000);
    EXPECT_EQ(*dark.of(Metric::fillRate).value, 0);
    EXPECT_EQ(reasonOf(dark, Metric::flatness), "no pixel of the region has a depth in half of the frames");
    const RegionQuality line = runOf(scene, 12, {0, 0, VQD_WIDTH, 1}).of(0, 2000);
    const RegionQuality still = runOf(wall(0, {.noise = 0}), 60).of(0, 2000);
    const RegionQuality sparse = runOf(wall(0, {.fill = 0.01}), 12).of(0, 2000);
    for (const RegionQuality& quality : {single, small, dark, line, still, sparse})
        for (const MetricRow& row : allMetrics()) {
            const Figure& figure = quality.of(row.metric);
            EXPECT_NE(figure.value.has_value(), !figure.reason.empty()) << row.name;
            EXPECT_TRUE(std::isfinite(figure.value.value_or(0) + figure.uncertainty.value_or(0))) << row.name;
        }
}

TEST(Quality, WhatMovesDoesNotChangeTheFitOfTheNoise)
{
    std::vector<Variance> samples;
    for (int i = 0; i < 5000; ++i) {
        const double x = 100 + i % 500, wave = 1 + 0.2 * std::sin(i * 0.7);
        samples.push_back({x, (6 + 0.2 * x) * (i % 40 == 0 ? 1e6 : wave), 60});
    }
    const std::optional<Line> line = varianceOver(samples);
    EXPECT_NEAR(line->intercept, 6, 0.6);
    EXPECT_NEAR(line->slope, 0.2, 0.004);
}

TEST(Quality, APixelFliesBetweenTwoSurfacesButNotOnASteepOne)
{
    const std::vector<double> noise(VQD_PIXELS, 3);
    std::vector<double> depth(VQD_PIXELS);
    const auto draw = [&](auto depthOf) {
        for (int i = 0; i < VQD_PIXELS; ++i)
            depth[static_cast<size_t>(i)] = depthOf(i % VQD_WIDTH, i / VQD_WIDTH);
        return flyingPixels(kAll, depth, noise);
    };
    EXPECT_EQ(draw([](int x, int) { return x < 100 ? 1000 : 2500; }), 0); // a clean step
    EXPECT_EQ(draw([](int x, int) { return x < 100 ? 1000 : x > 100 ? 2500 : 1700; }), VQD_HEIGHT);
    EXPECT_EQ(draw([](int, int y) { return y < 100 ? 1000 : y > 100 ? 2500 : 1700; }), VQD_WIDTH);
    EXPECT_EQ(draw([](int x, int) { return x < 100 ? 1000 : x > 100 ? 2500 : 1010; }), 0); // within the noise
    EXPECT_EQ(draw([](int, int y) { return y < 220 ? 240000.0 / (260 - y) : 6000; }), 0);  // a floor
    EXPECT_EQ(draw([](int x, int) { return x < 100 ? 1000 : x > 100 ? 0 : 1700; }), 0);    // nothing behind it
}
