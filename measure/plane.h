// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The plane that fits points best.
#pragma once

#include <optional>
#include <span>

#include "VQD_API.h"

struct Point {
    double x, y, z; // in the library's axes
};

struct Plane {
    double rms;  // of the points' distances from it, in their unit
    double tilt; // between its normal and the optical axis, in degrees
};

// The sum of the squares of the distances, each at right angles to the plane, is the least. Nothing for fewer than
// three points, for those that do not span a plane, and when one of them is not finite.
std::optional<Plane> planeThrough(std::span<const Point> points);
