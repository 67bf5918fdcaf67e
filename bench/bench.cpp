// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Times the library against what its users would write with OpenCV, in one process on one thread.
#include <array>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#ifdef VQD_SIMD
#include <hwy/highway.h>
#endif

#include "VQD_API.h"
#include "bench_usb.h"
#include "compare.h"
#include "frame/depth_pipeline.h"
#include "frame/frame_format.h"
#include "geometry/undistortion.h"

namespace
{

uint16_t amplitude[VQD_PIXELS], depth[VQD_PIXELS], amplitudeCopy[VQD_PIXELS], depthCopy[VQD_PIXELS];
Point3f points[VQD_PIXELS], pointsCopy[VQD_PIXELS];

const Lens kLens{{204, 204, 160, 120}, {-0.346f, 0.12f, 0, 0, 0, 0}};
const Lens kPincushion{{204, 204, 160, 120}, {0.1f, 0, 0, 0, 0, 0}};
const Lens kStraight{{204, 204, 160, 120}, {0, 0, 0, 0, 0, 0}};

uint16_t* rawAmplitude()
{
    return reinterpret_cast<uint16_t*>(buffers + kAmplitudePlane);
}

uint16_t* rawDepth()
{
    return reinterpret_cast<uint16_t*>(buffers + kDepthPlane);
}

cv::Mat image(uint16_t* pixels)
{
    return {VQD_HEIGHT, VQD_WIDTH, CV_16UC1, pixels};
}

cv::Mat map(float* positions)
{
    return {VQD_HEIGHT, VQD_WIDTH, CV_32FC1, positions};
}

void buildMaps(int mode, const Lens& lens = kLens)
{
    m_nUndistortionMode = mode;
    kernels::FillUndistortionMaps(lens, mode != 3, {m_fXp2, m_fYp2, fDist_x2, fDist_y2});
}

// Reads the maps and the planes once, several streams at a time, as fast as plain code does.
uint64_t readMapsAndPlanes()
{
    const auto words = [](const void* memory) { return static_cast<const uint64_t*>(memory); };
    const uint64_t *x = words(m_fXp2), *y = words(m_fYp2), *fx = words(fDist_x2), *fy = words(fDist_y2);
    const uint64_t *a = words(rawAmplitude()), *d = words(rawDepth());
    uint64_t sum = 0;
    for (int i = 0; i < VQD_PIXELS / 2; ++i)
        sum += x[i] + y[i] + fx[i] + fy[i];
    for (int i = 0; i < VQD_PIXELS / 4; ++i)
        sum += a[i] + d[i];
    return sum;
}

// A noisy slope with an edge, and tables that change every pixel.
void fill()
{
    std::mt19937 random(1);
    for (unsigned i = 0; i < VQD_PIXELS; ++i) {
        rawAmplitude()[i] = static_cast<uint16_t>(20 + random() % 800);
        rawDepth()[i] = static_cast<uint16_t>((i % VQD_WIDTH < 100 ? 1200 : 2000) + i / 500 + random() % 60);
        m_dOrthogonalData[i] = 0.9 + 1e-5 * (random() % 10000);
    }
    for (int& offset : m_nEEPROMFPPNBuf)
        offset = static_cast<int>(random() % 100) - 50;
    stCamParam[0].nMinDepth = 500;
    stCamParam[0].nMaxDepth = 7500;
    BuildPointCloudTable(kLens.k);
}

void ourPipeline()
{
    RunDepthPipeline(0, buffers, amplitude, depth);
    benchmark::ClobberMemory();
}

// Shows what processors with narrower vectors do: `body` runs on each target that this machine supports.
template <typename Body> void onEachTarget([[maybe_unused]] Body body)
{
#ifdef VQD_SIMD
    for (const int64_t target : hwy::SupportedAndGeneratedTargets()) {
        hwy::SetSupportedTargetsForTest(target);
        hwy::GetChosenTarget().DeInit();
        body(hwy::TargetName(target));
    }
    hwy::SetSupportedTargetsForTest(0);
    hwy::GetChosenTarget().DeInit();
#endif
}

// The pipeline of mode 1 and all corrections, as its stages would be written with OpenCV.
class OpenCvPipeline
{
public:
    OpenCvPipeline() { cv::Mat(VQD_HEIGHT / 4, VQD_WIDTH / 4, CV_32SC1, m_nEEPROMFPPNBuf).convertTo(m_blocks, CV_64F); }

    void run()
    {
        const cv::Mat x = map(m_fXp2), y = map(m_fYp2);
        cv::remap(image(rawAmplitude()), m_amplitude, x, y, cv::INTER_LINEAR);
        cv::remap(image(rawDepth()), m_depth, x, y, cv::INTER_LINEAR);
        m_depth.convertTo(m_wide, CV_64F);
        cv::resize(m_blocks, m_offsets, m_wide.size(), 0, 0, cv::INTER_NEAREST);
        m_wide = m_wide.mul(cv::Mat(VQD_HEIGHT, VQD_WIDTH, CV_64FC1, m_dOrthogonalData)) + m_offsets;
        m_wide.setTo(0, m_depth == 0);
        m_wide.convertTo(m_depth, CV_16U);
        cv::inRange(m_depth, stCamParam[0].nMinDepth, stCamParam[0].nMaxDepth, m_mask);
        m_depth.setTo(0, ~m_mask);
        const cv::Mat square = cv::Mat::ones(2, 2, CV_8U);
        cv::dilate(m_depth, m_high, square, {0, 0});
        cv::erode(m_depth, m_low, square, {0, 0});
        m_depth.setTo(0, (m_high - m_low > m_nEdgeDepth) & (m_amplitude >= m_nEdgeThres));
    }

private:
    cv::Mat m_blocks, m_offsets, m_amplitude, m_depth, m_wide, m_mask, m_high, m_low;
};

// A lens that is set anew from frame to frame: what a processor learns from one frame does not help with the next.
class ChangingMaps
{
public:
    ChangingMaps()
    {
        for (size_t i = 0; i < std::size(m_sets); ++i) {
            Lens lens = kLens;
            lens.k.cx += 0.37f * static_cast<float>(i);
            buildMaps(1, lens);
            m_sets[i] = {floats(m_fXp2), floats(m_fYp2), floats(fDist_x2), floats(fDist_y2)};
        }
    }

    // Not part of what is timed.
    void change()
    {
        const auto& set = m_sets[m_next++ % std::size(m_sets)];
        float* const maps[] = {m_fXp2, m_fYp2, fDist_x2, fDist_y2};
        for (size_t i = 0; i < std::size(maps); ++i)
            std::copy(set[i].begin(), set[i].end(), maps[i]);
    }

private:
    static std::vector<float> floats(const float* map) { return {map, map + VQD_PIXELS}; }
    std::array<std::vector<float>, 4> m_sets[7];
    size_t m_next = 0;
};

void compareResampling()
{
    cv::Mat amplitudeOut, depthOut;
    const auto remap = [&](int method) {
        const cv::Mat x = map(m_nUndistortionMode == 3 ? fDist_x2 : m_fXp2);
        const cv::Mat y = map(m_nUndistortionMode == 3 ? fDist_y2 : m_fYp2);
        cv::remap(image(rawAmplitude()), amplitudeOut, x, y, method);
        cv::remap(image(rawDepth()), depthOut, x, y, method);
    };
    const auto stream = [] { benchmark::DoNotOptimize(readMapsAndPlanes()); };
    const auto linear = [&] { remap(cv::INTER_LINEAR); };
    const auto nearest = [&] { remap(cv::INTER_NEAREST); };
    const auto copy = [] {
        memcpy(amplitudeCopy, rawAmplitude(), sizeof amplitudeCopy);
        memcpy(depthCopy, rawDepth(), sizeof depthCopy);
        benchmark::DoNotOptimize(&amplitudeCopy);
        benchmark::DoNotOptimize(&depthCopy);
        benchmark::ClobberMemory();
    };

    strcpy(m_stDevInfo[0].szDeviceName, "VQD-HT110");
    buildMaps(1);
    compare("gated bilinear / remap linear", 0.25, ourPipeline, linear);
    compare("gated bilinear / reading maps and planes once", 4, ourPipeline, stream);
    const auto compareTargets = [&](const char* lens, auto prepare) {
        onEachTarget([&](const char* target) {
            compare((std::string("gated bilinear, ") + lens + ", " + target + " / the same").c_str(), kNoGoal,
                    ourPipeline, stream, prepare);
        });
    };
    compareTargets("this lens", prepareNothing);
    ChangingMaps changing;
    compareTargets("another lens with each frame", [&] { changing.change(); });
    buildMaps(1, kPincushion);
    compareTargets("lens with k1 = 0.1", prepareNothing);
    buildMaps(1, kStraight);
    compareTargets("lens without distortion", prepareNothing);
    buildMaps(2);
    compare("bilinear / remap linear", 0.25, ourPipeline, linear);
    compare("bilinear / reading maps and planes once", 4, ourPipeline, stream);
    buildMaps(3);
    compare("nearest / remap nearest", 0.5, ourPipeline, nearest);
    m_nUndistortionMode = 0;
    compare("copy / two memcpy", 1.3, ourPipeline, copy);

    strcpy(m_stDevInfo[0].szDeviceName, "VQD-HT120");
    m_bFPPN = m_bOrthogonal = m_bRemoveEdge = 1;
    buildMaps(1);
    compare("gated bilinear, FPPN, orthogonal, clip, edges / remap linear", 0.4, ourPipeline, linear);
    OpenCvPipeline theirs;
    compare("all of these / the same stages in OpenCV", kNoGoal, ourPipeline, [&] { theirs.run(); });
    onEachTarget([&](const char* target) {
        compare((std::string("all of these with ") + target + " / remap linear").c_str(), kNoGoal, ourPipeline, linear);
    });
}

void compareMapBuild()
{
    const cv::Mat camera = (cv::Mat_<double>(3, 3) << 204, 0, 160, 0, 204, 120, 0, 0, 1);
    const cv::Mat distortion = (cv::Mat_<double>(1, 5) << -0.346, 0.12, 0, 0, 0);
    cv::Mat mapX, mapY;
    const auto theirs = [&] {
        cv::initUndistortRectifyMap(camera, distortion, cv::noArray(), camera, {VQD_WIDTH, VQD_HEIGHT}, CV_32FC1, mapX,
                                    mapY);
    };
    for (const int mode : {2, 3}) {
        const auto ours = [&] {
            buildMaps(mode);
            benchmark::ClobberMemory();
        };
        compare(mode == 2 ? "map build, modes 1 and 2 / initUndistortRectifyMap"
                          : "map build, mode 3 / initUndistortRectifyMap",
                0.3, ours, theirs);
    }
}

void comparePoints()
{
    const auto ours = [] {
        vqdDepthFrameToCameraSpace(rawDepth(), points, VQD_WIDTH, VQD_HEIGHT);
        benchmark::ClobberMemory();
    };
    const auto theirs = [] {
        memcpy(pointsCopy, points, sizeof points);
        benchmark::DoNotOptimize(&pointsCopy);
        benchmark::ClobberMemory();
    };
    compare("vqdDepthFrameToCameraSpace / memcpy of its output", 1.5, ours, theirs);
}

void compareFilters()
{
    constexpr int kAmplitude = 100, kScatter = 200, kLeast = 600, kMost = 2500;
    memcpy(depth, rawDepth(), sizeof depth);
    memcpy(depthCopy, rawDepth(), sizeof depthCopy);
    const auto ours = [] {
        vqdAmplitudeCheckFilter(rawAmplitude(), depth, kAmplitude, VQD_WIDTH, VQD_HEIGHT);
        vqdScatteringCheckFilter(rawAmplitude(), depth, kScatter, VQD_WIDTH, VQD_HEIGHT);
        vqdMinMaxCheckFilter(depth, kLeast, kMost, VQD_WIDTH, VQD_HEIGHT);
        benchmark::ClobberMemory();
    };
    const auto theirs = [] {
        const cv::Mat a = image(rawAmplitude());
        cv::Mat d = image(depthCopy);
        d.setTo(0, a < kAmplitude * fAmpScale);
        cv::Mat wideAmplitude, wideDepth;
        a.convertTo(wideAmplitude, CV_32F);
        d.convertTo(wideDepth, CV_32F);
        const cv::Mat limit = static_cast<float>(kScatter) / (wideDepth.mul(wideDepth) * fScatterScale);
        d.setTo(0, limit > wideAmplitude);
        d.setTo(0, (d < kLeast) | (d > kMost));
    };
    compare("the three filters / the same with OpenCV matrices", 0.15, ours, theirs);
}

} // namespace

int main()
{
    cv::setNumThreads(1);
    fill();
    std::printf("%-62s %11s %11s  %6s  %5s\n", "", "VQD_API", "peer", "ratio", "goal");
    compareResampling();
    compareMapBuild();
    comparePoints();
    compareFilters();
    CompareUsb();
}
