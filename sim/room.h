// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A small room as a camera with its own light sees it. Millimetres; the camera is the origin, x to the right, y down, z
// ahead.
#pragma once

#include <cstdint>

#include "optics.h"

namespace sim
{

// What comes back along one ray: depth along the optical axis, and the light's strength in counts, 0 when none does.
struct Echo {
    float depth = 0, amplitude = 0;
};

struct Ball {
    float x, y, z;
};

// Light that a surface sends back: Lambert's law, the square of the distance, and a lamp and lens that fall off to the
// side.
Echo echoFrom(Ray ray, float depth, float cosine, float reflectance);

Echo lookAtRoom(Ray ray);

Ball ballAt(uint64_t frame);
Echo lookAtBall(const Ball& ball, Ray ray); // amplitude 0: the ray misses it
bool nearBall(const Ball& ball, Ray ray);   // quick and generous

} // namespace sim
