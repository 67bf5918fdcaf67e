// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// See point_cloud.h.
#include "host/point_cloud.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>

#include <CLI/CLI.hpp>

#include "common.h"
#include "device/models.h"
#include "host/failure.h"

namespace
{

constexpr float kNone = std::numeric_limits<float>::quiet_NaN();
constexpr CloudPoint kInvalid{{kNone, kNone, kNone}, 0, 0};

constexpr struct {
    Axes axes;
    const char* name;
    const char* text; // in the files
    float y;          // sign of the library's
} kAxes[] = {
    {Axes::optical, "optical", "x right, y down, z ahead", -1},
    {Axes::camera, "camera", "X right, Y up, Z ahead", 1},
};

const auto& rowOf(Axes axes)
{
    return kAxes[static_cast<size_t>(axes)];
}

void append(Bytes& file, const CloudPoint& point, Axes axes)
{
    static_assert(std::endian::native == std::endian::little);
    const Point3f& p = point.position;
    const float vertex[4] = {p.x, rowOf(axes).y * p.y, p.z, point.amplitude};
    const auto* bytes = reinterpret_cast<const uint8_t*>(vertex);
    file.insert(file.end(), bytes, bytes + sizeof vertex);
}

Bytes plyFile(const std::vector<CloudPoint>& cloud, Axes axes)
{
    const std::string header =
        std::string("ply\nformat binary_little_endian 1.0\ncomment metres; ") + rowOf(axes).text +
        " of the camera\nelement vertex " + std::to_string(validPoints(cloud)) +
        "\nproperty float x\nproperty float y\nproperty float z\nproperty float intensity\nend_header\n";
    Bytes file(header.begin(), header.end());
    for (const CloudPoint& point : cloud)
        if (point.valid())
            append(file, point, axes);
    return file;
}

Bytes pcdFile(const std::vector<CloudPoint>& cloud, Axes axes)
{
    const std::string header = std::string("# .PCD v0.7 - metres; ") + rowOf(axes).text +
                               " of the camera\n"
                               "VERSION 0.7\nFIELDS x y z intensity\nSIZE 4 4 4 4\nTYPE F F F F\nCOUNT 1 1 1 1\n"
                               "WIDTH " +
                               std::to_string(VQD_WIDTH) + "\nHEIGHT " + std::to_string(VQD_HEIGHT) +
                               "\nVIEWPOINT 0 0 0 1 0 0 0\nPOINTS " + std::to_string(cloud.size()) + "\nDATA binary\n";
    Bytes file(header.begin(), header.end());
    for (const CloudPoint& point : cloud)
        append(file, point, axes);
    return file;
}

} // namespace

std::vector<CloudPoint> cloudOf(const Frame& frame)
{
    std::vector<Point3f> points(VQD_PIXELS);
    vqdDepthFrameToCameraSpace(frame.depth.data(), points.data(), VQD_WIDTH, VQD_HEIGHT);
    std::vector<CloudPoint> cloud(VQD_PIXELS, kInvalid);
    for (size_t i = 0; i < points.size(); ++i)
        if (frame.depth[i] != 0)
            cloud[i] = {points[i], static_cast<float>(frame.amplitude[i]), static_cast<float>(frame.depth[i])};
    return cloud;
}

std::vector<CloudPoint> cloudOf(const std::vector<PixelSum>& sums, int frames)
{
    std::vector<CloudPoint> cloud(sums.size(), kInvalid);
    for (size_t i = 0; i < sums.size(); ++i) {
        const PixelSum& sum = sums[i];
        if (sum.valid == 0 || 2 * sum.valid < frames)
            continue;
        const auto depth = static_cast<float>(sum.depth / sum.valid);
        const Point3f ray = pPointCloud[i]; // at 1 mm
        cloud[i] = {
            {ray.x * depth, ray.y * depth, ray.z * depth}, static_cast<float>(sum.amplitude / sum.valid), depth};
    }
    return cloud;
}

size_t validPoints(const std::vector<CloudPoint>& cloud)
{
    return static_cast<size_t>(std::ranges::count_if(cloud, &CloudPoint::valid));
}

void addAxes(CLI::App& command, Axes& axes)
{
    std::vector<std::string> names;
    for (const auto& row : kAxes)
        names.emplace_back(row.name);
    command
        .add_option_function<std::string>(
            "--axes",
            [&axes](const std::string& name) {
                axes = std::ranges::find(kAxes, name, [](const auto& row) { return std::string(row.name); })->axes;
            },
            "Of point clouds: optical is x right, y down, z ahead; camera is the library's X right, Y up, Z ahead")
        ->check(CLI::IsMember(names))
        ->default_str(kAxes[0].name);
}

std::vector<Assignment> cloudSettings(const Camera& camera, const std::vector<std::string>& chosen)
{
    std::vector<std::string> texts;
    const auto add = [&](const std::string& key) {
        if (std::ranges::none_of(chosen, [&](const std::string& text) { return text.starts_with(key + "="); }))
            texts.push_back(key + "=1");
    };
    add("undistortion");
    if (IsHostCorrected(camera.nIndex))
        add("orthogonal");
    std::string told;
    for (const std::string& text : texts)
        told += " " + text;
    if (!told.empty())
        note("so that points are true to scale, with%s; -s overrides", told.c_str());
    texts.insert(texts.end(), chosen.begin(), chosen.end());
    return parseAssignments(texts);
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
