// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A chessboard that somebody holds before the camera, in one pose after the other, with a wall behind.
#pragma once

#include <vector>

#include "pose.h"
#include "room.h"

namespace sim
{

struct BoardSeries {
    int columns = 9, rows = 6; // squares; one more of white surrounds them
    double square = 60;        // mm
    double wall = 3500;        // depth of the wall behind, mm
    // Of the board's centre; unturned, it faces the camera. A board that nobody holds has no pose.
    std::vector<Pose> poses;
    uint64_t framesPerPose = 10;
};

// What a ray meets: the board in this place, or the wall.
Echo lookAtBoard(const BoardSeries& series, const Placement& place, const Line& line);

} // namespace sim
