// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The calibration of a camera, both lenses and the transform between them, as JSON.
#pragma once

#include <optional>

#include "camera.h"
#include "host/plausibility.h"

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

// The members "depth", "colour" and "extrinsic", as the camera stores them; null is what it does not store.
Json calibrationJson(const Camera& camera);

// The values as the camera can store them. Fails with a usage error that names what is wrong, also for what is not
// plausible, unless --force; `file` is for that message.
Calibration calibrationFrom(const Json& json, const std::string& file);

// Into the host's image and the EEPROM.
void store(int n, const Calibration& calibration);
