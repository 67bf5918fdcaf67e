// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The calibration of a camera as JSON: both lenses and the transform between them.
#pragma once

#include <optional>

#include "host/json.h"
#include "host/listed_camera.h"
#include "host/plausibility.h"

inline constexpr const char* kIntrinsicNames[] = {"fx", "fy", "cx", "cy"};
inline constexpr const char* kDistortionNames[] = {"k1", "k2", "k3", "p1", "p2", "skew"};

struct LensSet {
    LensIntrinsic k;
    LensDistortion d;
};

// The sets that a file may hold.
struct Calibration {
    std::optional<LensSet> depth, colour;
    std::optional<ExtrinsicParam> extrinsic;
};

// The members "depth", "colour" and "extrinsic", as the camera stores them. What it does not store is null.
Json calibrationJson(const ListedCamera& camera);

// The values as the camera can store them. Fails with a usage error that names what is wrong; `file` is for that
// message.
Calibration calibrationFrom(const Json& json, const std::string& file);

// One lens in full precision, as a profile keeps it. Reading fails with a usage error that names what is wrong.
Json exactLensJson(const LensSet& lens);
LensSet exactLensFrom(const Json& set, const std::string& name);

// What of it is not plausible as the calibration of a camera.
std::vector<Implausible> implausibleIn(const Calibration& calibration);

// Writes it into the host's image, as the library's setters would, but without a save for each set.
void putIntoImage(int n, const Calibration& calibration);
