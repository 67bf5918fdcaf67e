// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A frame, or the mean of several, as points in space, and files of such points.
#pragma once

#include <string>
#include <vector>

#include "host/bytes.h"
#include "host/depth_frame.h"

// A cloud has one for each pixel, row by row.
struct CloudPoint {
    Point3f position; // metres in the library's axes: X right, Y up, Z ahead; NaN where there is no depth
    float amplitude;
    float depth; // mm, 0: none

    bool valid() const { return depth > 0; }
};

// Axes of cloud files. Optical: x right, y down, z ahead, right-handed. Camera: the library's own, left-handed.
enum class Axes { optical, camera };
std::vector<std::string> axesNames();
Axes axesNamed(const std::string& name); // fails with a usage error for an unknown name

// The sum of several frames at one pixel.
struct PixelSum {
    double amplitude = 0, depth = 0;
    int valid = 0; // frames with a depth there
};

// The points of one frame.
std::vector<CloudPoint> cloudOf(const DepthFrame& frame);

// The mean of several frames. A pixel is valid when it was valid in at least half of them.
std::vector<CloudPoint> cloudOf(const std::vector<PixelSum>& sums, int frames);

size_t validPoints(const std::vector<CloudPoint>& cloud);

// Binary files of x, y, z and the amplitude as intensity, all float. A ply holds the valid points, a pcd all 320 x 240.
struct CloudFormat {
    const char* name; // also the extension: "ply", "pcd"
    Bytes (*encode)(const std::vector<CloudPoint>& cloud, Axes axes);
};

std::vector<std::string> cloudFormatNames();

// Fails with a usage error for an unknown name.
const CloudFormat& cloudFormat(const std::string& name);
