// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A point cloud drawn from a turned viewpoint, nearest points in front.
#include "cloud_picture.h"

#include <algorithm>
#include <cmath>

namespace
{

constexpr int kWidth = 640, kHeight = 480;
constexpr float kFocal = 480;                // pixels
constexpr float kYaw = 0.42f, kPitch = 0.3f; // radians around the middle of the cloud

struct Projected {
    int x, y;
    float distance;
};

// From the turned viewpoint; the cloud's middle keeps its distance.
Projected project(const Point3f& p, float middle)
{
    const float z = p.z - middle;
    const float turned = p.x * std::sin(kYaw) + z * std::cos(kYaw);
    const float x = p.x * std::cos(kYaw) - z * std::sin(kYaw);
    const float y = p.y * std::cos(kPitch) + turned * std::sin(kPitch);
    const float distance = turned * std::cos(kPitch) - p.y * std::sin(kPitch) + 1.25f * middle;
    if (!(distance > 0.1f))
        return {-1, -1, 0};
    const auto pixel = [](float v) { return static_cast<int>(std::clamp(v, -2.0f, 1e4f)); };
    return {pixel(kWidth / 2.0f + kFocal * x / distance), pixel(kHeight / 2.0f - kFocal * y / distance), distance};
}

float middleOf(const std::vector<CloudPoint>& cloud)
{
    std::vector<float> z;
    for (const CloudPoint& point : cloud)
        if (point.valid())
            z.push_back(point.position.z);
    if (z.empty())
        return 1;
    std::nth_element(z.begin(), z.begin() + static_cast<std::ptrdiff_t>(z.size() / 2), z.end());
    return std::max(z[z.size() / 2], 0.01f);
}

} // namespace

Bytes cloudPicture(const std::vector<CloudPoint>& cloud)
{
    std::vector<uint16_t> depth;
    std::vector<uint16_t> amplitude;
    for (const CloudPoint& point : cloud) {
        depth.push_back(static_cast<uint16_t>(point.depth));
        amplitude.push_back(static_cast<uint16_t>(point.amplitude));
    }
    const Bytes colours = depthColours(depth);
    const Bytes light = amplitudeGreys(amplitude);

    constexpr int kSplat = 3; // pixels a side, so that near surfaces are closed
    const float middle = middleOf(cloud);
    std::vector<float> nearest(size_t{kWidth} * kHeight, INFINITY);
    Bytes pixels(3 * nearest.size(), 0);
    for (size_t i = 0; i < cloud.size(); ++i) {
        if (!cloud[i].valid())
            continue;
        const Projected at = project(cloud[i].position, middle);
        for (int y = std::max(at.y, 0); y < std::min(at.y + kSplat, kHeight); ++y)
            for (int x = std::max(at.x, 0); x < std::min(at.x + kSplat, kWidth); ++x) {
                const size_t target = static_cast<size_t>(y) * kWidth + static_cast<size_t>(x);
                if (at.distance >= nearest[target])
                    continue;
                nearest[target] = at.distance;
                for (size_t c = 0; c < 3; ++c)
                    pixels[3 * target + c] =
                        static_cast<uint8_t>(colours[3 * i + c] * (90 + light[i] * 165 / 255) / 255);
            }
    }
    return colourPicture(pixels, kWidth, kHeight);
}
