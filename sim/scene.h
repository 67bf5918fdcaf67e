// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What the virtual camera sees: frame sources, deterministic by seed and frame index.
#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "board.h"
#include "frame_source.h"
#include "optics.h"
#include "pose.h"
#include "sensor.h"

namespace sim
{

enum class SceneKind {
    room,  // a furnished room of 5.4 m with a bouncing ball
    wall,  // one flat wall
    ramp,  // depth 500 + 10 * column, amplitude 400 + 2 * row
    plane, // depth 1500 and amplitude 1000 everywhere
    board, // a chessboard in one pose after the other
};

struct SceneOptions {
    SceneKind kind = SceneKind::room;
    uint64_t seed = 1;
    Optics lens = {};                            // that the scene is rendered through
    SensorModel sensor = {};                     // behind it
    Pose pose = {};                              // of the camera in the room, or before the wall or the board
    double wallDistance = 2000, wallSlope = 0.2; // its depth is distance + slope * X, in mm
    BoardSeries board = {};
    // Room, wall and board before a host-corrected camera: depth as its sensor measures it, for the host to correct
    // with the camera's tables. Else, and for every other camera, depth along the optical axis.
    bool rawDepth = true;
};

std::shared_ptr<FrameSource> makeScene(const SceneOptions& options);

std::optional<SceneKind> sceneByName(std::string_view name); // "room", "wall", "ramp", "plane", "board"

} // namespace sim
