// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A small room as a camera with its own light sees it. Millimetres; x to the right, y down, z ahead; the camera stands
// at the origin unless it is given a pose.
#pragma once

#include <cstdint>

#include "pose.h"

namespace sim
{

// What comes back along one ray: depth along the optical axis, and the light's strength in counts, 0 when none does.
struct Echo {
    float depth = 0, amplitude = 0;
};

using Ball = Vec; // its centre

// Light that a surface sends back: Lambert's law, the square of the distance, and a lamp and lens that fall off to the
// side.
Echo echoFrom(const Vec& along, float depth, float cosine, float reflectance);

Echo lookAtRoom(Line line);

Ball ballAt(uint64_t frame);
Echo lookAtBall(const Ball& ball, const Line& line); // amplitude 0: the ray misses it
bool nearBall(const Ball& ball, const Line& line);   // quick and generous

} // namespace sim
