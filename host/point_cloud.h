// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A frame as points in space: files and a picture of them.
#pragma once

#include "camera.h"
#include "pictures.h"
#include "host/settings.h"

namespace CLI
{
class App;
}

// One for each pixel, row by row.
struct CloudPoint {
    Point3f position; // metres in the library's axes: X right, Y up, Z ahead; NaN where there is no depth
    float amplitude;
    float depth; // mm, 0: none

    bool valid() const { return depth > 0; }
};

// Of files: optical is x right, y down, z ahead, right-handed; camera is the library's own, left-handed.
enum class Axes { optical, camera };

// What frames add up to at one pixel.
struct PixelSum {
    double amplitude = 0, depth = 0;
    int valid = 0; // frames with a depth there
};

// A frame through the library's rays.
std::vector<CloudPoint> cloudOf(const Frame& frame);

// Means of several frames; valid are pixels that are so in half of them at least.
std::vector<CloudPoint> cloudOf(const std::vector<PixelSum>& sums, int frames);

size_t validPoints(const std::vector<CloudPoint>& cloud);

// Binary, x, y, z and the amplitude as intensity, all float. A ply holds the valid points, a pcd all, as 320 x 240.
struct CloudFormat {
    const char* name; // also the extension: "ply", "pcd"
    Bytes (*encode)(const std::vector<CloudPoint>& cloud, Axes axes);
};

// Fails with a usage error for a name that is not known.
const CloudFormat& cloudFormat(const std::string& name);

// Adds --axes to a command that writes clouds.
void addAxes(CLI::App& command, Axes& axes);

// What -s said, and before it what makes a cloud true to scale, where -s says nothing of that. Tells of it on standard
// error.
std::vector<Assignment> cloudSettings(const Camera& camera, const std::vector<std::string>& chosen);

// The cloud as seen from above the camera's right shoulder.
Bytes cloudPicture(const std::vector<CloudPoint>& cloud);
