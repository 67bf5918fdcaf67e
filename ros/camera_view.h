// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What the parameters of a worker say about its images: which kind they are, through which lens they were seen, and
// where the camera stands.
#pragma once

#include <string>
#include <vector>

#include "host/json.h"
#include "host/profile.h"

struct ImageKind {
    bool rectified = false; // undistorted: straight edges are straight
    bool range = false;     // depth is the length of the ray, not the distance along the optical axis

    bool operator==(const ImageKind&) const = default;
};

// Pixels of the images, and Brown-Conrady.
struct ViewLens {
    double fx = 0, fy = 0, cx = 0, cy = 0;
    double k1 = 0, k2 = 0, k3 = 0, p1 = 0, p2 = 0, skew = 0;

    bool operator==(const ViewLens&) const = default;
};

struct CameraView {
    std::string serial, product; // empty when they are not known
    ImageKind kind;
    ViewLens lens;           // of rectified images without distortion
    std::string profilePath; // empty when none is in use
};

// From JSON of the schema vqd.parameters/1. Fails with a usage error when it is not that.
CameraView cameraViewFrom(const Json& parameters);

// The words for a kind in topics: "depth" or "range", "image_rect" or "image_raw".
const char* depthWord(const ImageKind& kind);
const char* imageWord(const ImageKind& kind);
