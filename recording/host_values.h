// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What acts on a frame besides the parameter image and the tables: values in the library's variables. The image holds
// some of them rounded, or as they are to be and not as they are.
#pragma once

#include <array>
#include <cstdint>

#include "host/bytes.h"
#include "host/json.h"

struct HostValues {
    int32_t minDepth = 0, maxDepth = 0; // mm, of the range that acts
    uint16_t depthGap = 0;              // mm
    uint8_t edgeThreshold = 0, edgeDepth = 0;
    float amplitudeScale = 0, scatterScale = 0;
    int undistortion = 0, fppn = 0, orthogonal = 0, removeEdge = 0, removeMotionBlur = 0, horizontal = 0, vertical = 0;
    std::array<float, 4> intrinsic{};  // fx, fy, cx, cy
    std::array<float, 6> distortion{}; // k1, k2, k3, p1, p2, skew
    std::array<float, 4> colourIntrinsic{};
    std::array<float, 6> colourDistortion{};

    bool operator==(const HostValues&) const = default;
};

// What the camera and the library were set to.
struct RecordedParameters {
    Bytes image; // VQD_IMAGE_BYTES
    HostValues host;

    bool operator==(const RecordedParameters&) const = default;
};

// Of camera n, from the library's variables, and back into them. The maps of the undistortion are not made anew.
HostValues hostValuesOf(int n);
void takeHostValues(int n, const HostValues& values);

// Schema kHostValuesSchema. Fails with a usage error for what is none.
Json hostValuesJson(const HostValues& values);
HostValues hostValuesFrom(const Json& json);
