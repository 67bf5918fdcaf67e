// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The calibration of a camera, both lenses and the transform between them, as JSON.
#pragma once

#include <optional>

#include "camera.h"

inline constexpr const char* kIntrinsicNames[] = {"fx", "fy", "cx", "cy"};
inline constexpr const char* kDistortionNames[] = {"k1", "k2", "k3", "p1", "p2", "skew"};

struct LensSet {
    LensIntrinsic k;
    LensDistortion d;
};

// The sets that a file holds.
struct Calibration {
    std::optional<LensSet> depth, colour;
    std::optional<ExtrinsicParam> extrinsic;
};

// Whether it can be a depth lens of these cameras. The library replaces one whose cx is not between 140 and 180.
bool isPlausible(const LensIntrinsic& k);

// The members "depth", "colour" and "extrinsic", as the camera stores them.
Json calibrationJson(const Camera& camera);

// Fails with a usage error that names what is wrong; `file` is for that message.
Calibration calibrationFrom(const Json& json, const std::string& file);

// Into the host's image and the EEPROM.
void store(int n, const Calibration& calibration);
