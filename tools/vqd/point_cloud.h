// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A frame as points in space: files and a picture of them.
#pragma once

#include "camera.h"
#include "pictures.h"

struct CloudPoint {
    Point3f position; // metres, X right, Y up, Z forward
    float amplitude;
    float depth; // mm
};

// What frames add up to at one pixel.
struct PixelSum {
    double amplitude = 0, depth = 0;
    int valid = 0; // frames with a depth there
};

// The valid pixels of a frame, through the library's rays.
std::vector<CloudPoint> cloudOf(const Frame& frame);

// Means of several frames: the pixels that are valid in half of them at least.
std::vector<CloudPoint> cloudOf(const std::vector<PixelSum>& sums, int frames);

// Binary, x, y, z and the amplitude as intensity, all float.
struct CloudFormat {
    const char* name; // also the extension: "ply", "pcd"
    Bytes (*encode)(const std::vector<CloudPoint>& cloud);
};

// Fails with a usage error for a name that is not known.
const CloudFormat& cloudFormat(const std::string& name);

// The cloud as seen from above the camera's right shoulder.
Bytes cloudPicture(const std::vector<CloudPoint>& cloud);
