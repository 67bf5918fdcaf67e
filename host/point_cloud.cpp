// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Points from depth by the library's rays, and the two formats of cloud files.
#include "host/point_cloud.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

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

constexpr CloudFormat kFormats[] = {{"ply", plyFile}, {"pcd", pcdFile}};

} // namespace

std::vector<CloudPoint> cloudOf(const DepthFrame& frame)
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

std::vector<std::string> axesNames()
{
    std::vector<std::string> names;
    for (const auto& row : kAxes)
        names.emplace_back(row.name);
    return names;
}

Axes axesNamed(const std::string& name)
{
    const auto* row = std::ranges::find(kAxes, name, [](const auto& r) { return std::string(r.name); });
    if (row == std::end(kAxes))
        throw Failure(kUsage, "axes are optical or camera, not '" + name + "'");
    return row->axes;
}

std::vector<std::string> cloudFormatNames()
{
    std::vector<std::string> names;
    for (const CloudFormat& format : kFormats)
        names.emplace_back(format.name);
    return names;
}

const CloudFormat& cloudFormat(const std::string& name)
{
    for (const CloudFormat& format : kFormats)
        if (name == format.name)
            return format;
    throw Failure(kUsage, "a point cloud is ply or pcd, not '" + name + "'");
}
