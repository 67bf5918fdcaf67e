// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// See point_cloud.h.
#include "point_cloud.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <numeric>

#include "exit_codes.h"

std::vector<CloudPoint> cloudOf(const Frame& frame)
{
    std::vector<Point3f> points(VQD_PIXELS);
    vqdDepthFrameToCameraSpace(frame.depth.data(), points.data(), VQD_WIDTH, VQD_HEIGHT);
    std::vector<CloudPoint> cloud;
    for (size_t i = 0; i < points.size(); ++i)
        if (frame.depth[i] != 0)
            cloud.push_back({points[i], static_cast<float>(frame.amplitude[i]), static_cast<float>(frame.depth[i])});
    return cloud;
}

std::vector<CloudPoint> cloudOf(const std::vector<PixelSum>& sums, int frames)
{
    std::vector<CloudPoint> cloud;
    for (size_t i = 0; i < sums.size(); ++i) {
        const PixelSum& sum = sums[i];
        if (sum.valid == 0 || 2 * sum.valid < frames)
            continue;
        const auto depth = static_cast<float>(sum.depth / sum.valid);
        const Point3f ray = pPointCloud[i]; // at 1 mm
        cloud.push_back(
            {{ray.x * depth, ray.y * depth, ray.z * depth}, static_cast<float>(sum.amplitude / sum.valid), depth});
    }
    return cloud;
}

static Bytes cloudFile(const std::string& header, const std::vector<CloudPoint>& cloud)
{
    static_assert(std::endian::native == std::endian::little);
    Bytes file(header.begin(), header.end());
    for (const CloudPoint& point : cloud) {
        const float vertex[4] = {point.position.x, point.position.y, point.position.z, point.amplitude};
        const auto* bytes = reinterpret_cast<const uint8_t*>(vertex);
        file.insert(file.end(), bytes, bytes + sizeof vertex);
    }
    return file;
}

static Bytes plyFile(const std::vector<CloudPoint>& cloud)
{
    return cloudFile("ply\nformat binary_little_endian 1.0\n"
                     "comment metres; X right, Y up, Z forward from the camera\n"
                     "element vertex " +
                         std::to_string(cloud.size()) +
                         "\nproperty float x\nproperty float y\nproperty float z\nproperty float intensity\n"
                         "end_header\n",
                     cloud);
}

static Bytes pcdFile(const std::vector<CloudPoint>& cloud)
{
    const std::string points = std::to_string(cloud.size());
    return cloudFile("# .PCD v0.7 - metres; X right, Y up, Z forward from the camera\n"
                     "VERSION 0.7\nFIELDS x y z intensity\nSIZE 4 4 4 4\nTYPE F F F F\nCOUNT 1 1 1 1\n"
                     "WIDTH " +
                         points + "\nHEIGHT 1\nVIEWPOINT 0 0 0 1 0 0 0\nPOINTS " + points + "\nDATA binary\n",
                     cloud);
}

const CloudFormat& cloudFormat(const std::string& name)
{
    static constexpr CloudFormat kFormats[] = {{"ply", plyFile}, {"pcd", pcdFile}};
    for (const CloudFormat& format : kFormats)
        if (name == format.name)
            return format;
    throw Failure(kUsage, "a point cloud is ply or pcd, not '" + name + "'");
}

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
