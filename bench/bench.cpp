// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Times the library against what its users would write with OpenCV: in one process, on one thread, in turns, and prints
// the ratio of the medians.
#include <algorithm>
#include <cstdio>
#include <functional>
#include <vector>

#include <benchmark/benchmark.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

#include "VQD_API.h"
#include "geometry/undistortion.h"

namespace
{

constexpr int kRounds = 301;

double seconds(const std::function<void()>& run)
{
    const int64_t start = cv::getTickCount();
    run();
    return static_cast<double>(cv::getTickCount() - start) / cv::getTickFrequency();
}

double median(std::vector<double> times)
{
    std::nth_element(times.begin(), times.begin() + static_cast<long>(times.size() / 2), times.end());
    return times[times.size() / 2];
}

// Paired rounds, so that a change of the machine's pace meets both sides.
void compare(const char* name, const std::function<void()>& ours, const std::function<void()>& theirs, double goal)
{
    std::vector<double> a, b;
    for (int i = 0; i < kRounds; ++i) {
        a.push_back(seconds(ours));
        b.push_back(seconds(theirs));
    }
    std::printf("%-44s %8.1f us %8.1f us   ratio %.3f (goal %.2f)\n", name, median(a) * 1e6, median(b) * 1e6,
                median(a) / median(b), goal);
}

void compareMapBuild()
{
    const Lens lens{{204, 204, 160, 120}, {-0.346f, 0.12f, 0, 0, 0, 0}};
    const cv::Mat camera = (cv::Mat_<double>(3, 3) << 204, 0, 160, 0, 204, 120, 0, 0, 1);
    const cv::Mat distortion = (cv::Mat_<double>(1, 5) << -0.346, 0.12, 0, 0, 0);
    cv::Mat mapX, mapY;
    const auto theirs = [&] {
        cv::initUndistortRectifyMap(camera, distortion, cv::noArray(), camera, {VQD_WIDTH, VQD_HEIGHT}, CV_32FC1, mapX,
                                    mapY);
    };
    for (const bool fractions : {true, false}) {
        const auto ours = [&] {
            benchmark::DoNotOptimize(FillUndistortionMaps(lens, fractions, {m_fXp2, m_fYp2, fDist_x2, fDist_y2}));
            benchmark::ClobberMemory();
        };
        compare(fractions ? "map build, modes 1 and 2 / initUndistort" : "map build, mode 3 / initUndistort", ours,
                theirs, 0.3);
    }
}

} // namespace

int main()
{
    cv::setNumThreads(1);
    compareMapBuild();
}
