// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A frame as points in space: a PLY file and a picture of them.
#pragma once

#include "camera.h"
#include "pictures.h"

struct CloudPoint {
    Point3f position; // metres, X right, Y up, Z forward
    uint16_t amplitude;
    uint16_t depth; // mm
};

// The valid pixels of a frame, through the library's rays.
std::vector<CloudPoint> cloudOf(const Frame& frame);

// Binary PLY: x, y, z and the amplitude as intensity, all float.
Bytes plyFile(const std::vector<CloudPoint>& cloud);

// The cloud as seen from above the camera's right shoulder.
Bytes cloudPicture(const std::vector<CloudPoint>& cloud);
