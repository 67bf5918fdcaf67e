// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What the virtual camera sees: frame sources, deterministic by seed and frame index.
#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "frame_source.h"
#include "optics.h"

namespace sim
{

enum class SceneKind {
    room,  // a furnished room of 5.4 m with a bouncing ball
    wall,  // one flat wall, 2 m away on the axis, its right side further: depth = 2000 + 0.2 * X
    ramp,  // depth 500 + 10 * column, amplitude 400 + 2 * row
    plane, // depth 1500 and amplitude 1000 everywhere
};

struct SceneOptions {
    SceneKind kind = SceneKind::room;
    uint64_t seed = 1;
    Optics lens = {}; // that the scene is rendered through
    double noise = 1; // scale of all noise; 0 for exact scenes
    // Room and wall before a host-corrected camera: depth as its sensor measures it, for the host to correct with the
    // camera's tables. Else, and for every other camera, depth along the optical axis.
    bool rawDepth = true;
};

std::shared_ptr<FrameSource> makeScene(const SceneOptions& options);

std::optional<SceneKind> sceneByName(std::string_view name); // "room", "wall", "ramp", "plane"

} // namespace sim
