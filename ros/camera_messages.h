// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A camera's frames, lens, poses and state as ROS 2 messages.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "VQD_API.h"

#include "host/profile.h"
#include "messages.h"
#include "ros/camera_view.h"

using Plane = std::span<const uint16_t, VQD_PIXELS>;

// Time is CLOCK_REALTIME in ns.
msg::std_msgs::Header headerOf(int64_t time, const std::string& frameId);

// Replaces the pixels, and keeps the memory.
void fillImage(msg::sensor_msgs::Image& image, Plane plane, const char* encoding);

msg::sensor_msgs::CameraInfo cameraInfoOf(const CameraView& view);

// Directions of the pixels in optical axes: x right, y down, z ahead. Times a pixel's depth they give its point.
struct Ray {
    float x, y, z;
};
std::vector<Ray> raysOf(const CameraView& view);

// All pixels in optical axes and metres, with the amplitude as intensity; NaN where there is no depth.
void fillCloud(msg::sensor_msgs::PointCloud2& cloud, const std::vector<Ray>& rays, Plane depth, Plane amplitude);

// Where the frame `child` is, as seen from the place that the pose leads to.
msg::geometry_msgs::TransformStamped transformOf(const Pose& pose, const std::string& child);

// Where the images of the camera are that is called so.
std::string opticalFrame(const std::string& name);
