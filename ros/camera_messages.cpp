// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Pure functions from what a worker tells to what ROS 2 expects (REP 103, REP 118, sensor_msgs).
#include "ros/camera_messages.h"

#include <cmath>
#include <cstring>
#include <limits>

#include "host/topic_name.h"

namespace
{

constexpr uint32_t kPointBytes = 4 * sizeof(float);

// The direction of which the lens makes this one. Converges in a few passes wherever a lens can be used at all.
void undistort(const ViewLens& lens, double& x, double& y)
{
    constexpr int kPasses = 50;
    const double xd = x, yd = y;
    for (int pass = 0; pass < kPasses; ++pass) {
        const double r2 = x * x + y * y;
        const double radial = 1 + r2 * (lens.k1 + r2 * (lens.k2 + r2 * lens.k3));
        const double dx = x * radial + 2 * lens.p1 * x * y + lens.p2 * (r2 + 2 * x * x) - xd;
        const double dy = y * radial + lens.p1 * (r2 + 2 * y * y) + 2 * lens.p2 * x * y - yd;
        x -= dx;
        y -= dy;
    }
}

Ray rayOf(const CameraView& view, double u, double v)
{
    double y = (v - view.lens.cy) / view.lens.fy;
    double x = (u - view.lens.cx) / view.lens.fx - view.lens.skew * y;
    undistort(view.lens, x, y);
    const double length = view.kind.range ? std::sqrt(1 + x * x + y * y) : 1;
    return {static_cast<float>(x / length), static_cast<float>(y / length), static_cast<float>(1 / length)};
}

// By Shepperd's method: divides by the largest of the four, so by no number near 0.
msg::geometry_msgs::Quaternion quaternionOf(const std::array<double, 9>& r)
{
    const double squares[] = {1 + r[0] - r[4] - r[8], 1 - r[0] + r[4] - r[8], 1 - r[0] - r[4] + r[8],
                              1 + r[0] + r[4] + r[8]};
    const double xy = r[1] + r[3], xz = r[2] + r[6], yz = r[5] + r[7];
    const double x = r[7] - r[5], y = r[2] - r[6], z = r[3] - r[1];
    const std::array<double, 4> rows[] = {
        {squares[0], xy, xz, x}, {xy, squares[1], yz, y}, {xz, yz, squares[2], z}, {x, y, z, squares[3]}};
    const auto largest = std::max_element(std::begin(squares), std::end(squares)) - std::begin(squares);
    const double scale = 0.5 / std::sqrt(squares[largest]);
    const std::array<double, 4>& row = rows[largest];
    return {row[0] * scale, row[1] * scale, row[2] * scale, row[3] * scale};
}

bool isSerial(const std::string& text)
{
    return text.size() == 14 && text.find_first_not_of("0123456789") == std::string::npos;
}

} // namespace

msg::std_msgs::Header headerOf(int64_t time, const std::string& frameId)
{
    constexpr int64_t kSecond = 1'000'000'000;
    return {{static_cast<int32_t>(time / kSecond), static_cast<uint32_t>(time % kSecond)}, frameId};
}

void fillImage(msg::sensor_msgs::Image& image, Plane plane, const char* encoding)
{
    image.height = VQD_HEIGHT;
    image.width = VQD_WIDTH;
    image.encoding = encoding;
    image.is_bigendian = 0;
    image.step = VQD_WIDTH * sizeof(uint16_t);
    const auto* const bytes = reinterpret_cast<const uint8_t*>(plane.data());
    image.data.assign(bytes, bytes + plane.size_bytes());
}

msg::sensor_msgs::CameraInfo cameraInfoOf(const CameraView& view)
{
    const ViewLens& lens = view.lens;
    const double s = lens.skew * lens.fx;
    msg::sensor_msgs::CameraInfo info;
    info.height = VQD_HEIGHT;
    info.width = VQD_WIDTH;
    info.distortion_model = "plumb_bob";
    info.d = {lens.k1, lens.k2, lens.p1, lens.p2, lens.k3};
    info.k = {lens.fx, s, lens.cx, 0, lens.fy, lens.cy, 0, 0, 1};
    info.r = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    info.p = {lens.fx, 0, lens.cx, 0, 0, lens.fy, lens.cy, 0, 0, 0, 1, 0};
    return info;
}

std::vector<Ray> raysOf(const CameraView& view)
{
    std::vector<Ray> rays;
    rays.reserve(VQD_PIXELS);
    for (int v = 0; v < VQD_HEIGHT; ++v)
        for (int u = 0; u < VQD_WIDTH; ++u)
            rays.push_back(rayOf(view, u, v));
    return rays;
}

void fillCloud(msg::sensor_msgs::PointCloud2& cloud, const std::vector<Ray>& rays, Plane depth, Plane amplitude)
{
    constexpr float kNone = std::numeric_limits<float>::quiet_NaN();
    constexpr const char* kFields[] = {"x", "y", "z", "intensity"};
    cloud.height = VQD_HEIGHT;
    cloud.width = VQD_WIDTH;
    cloud.fields.clear();
    for (const char* name : kFields)
        cloud.fields.push_back({name, static_cast<uint32_t>(cloud.fields.size() * sizeof(float)),
                                msg::sensor_msgs::PointField::FLOAT32, 1});
    cloud.is_bigendian = false;
    cloud.point_step = kPointBytes;
    cloud.row_step = VQD_WIDTH * kPointBytes;
    cloud.is_dense = false;
    cloud.data.resize(VQD_PIXELS * size_t{kPointBytes});
    for (size_t i = 0; i < VQD_PIXELS; ++i) {
        const float metres = depth[i] != 0 ? static_cast<float>(depth[i]) * 0.001F : kNone;
        const float point[] = {rays[i].x * metres, rays[i].y * metres, rays[i].z * metres,
                               static_cast<float>(amplitude[i])};
        memcpy(cloud.data.data() + i * sizeof point, point, sizeof point);
    }
}

msg::geometry_msgs::TransformStamped transformOf(const Pose& pose, const std::string& child)
{
    constexpr double kMillimetre = 0.001;
    msg::geometry_msgs::TransformStamped transform;
    transform.header.frame_id = isSerial(pose.to) ? opticalFrame(usualTopicName(pose.to)) : pose.to;
    transform.child_frame_id = child;
    const auto& t = pose.translation;
    transform.transform.translation = {t[0] * kMillimetre, t[1] * kMillimetre, t[2] * kMillimetre};
    transform.transform.rotation = quaternionOf(pose.rotation);
    return transform;
}

std::string opticalFrame(const std::string& name)
{
    return name + "_optical_frame";
}
