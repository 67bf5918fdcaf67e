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

struct FittedPlane {
    double rms;    // of the points' distances from it, in their unit
    double tilt;   // between its normal and the optical axis, in degrees
    Point normal;  // of length 1, away from the camera
    double offset; // of its points along the normal

    // How many times a ray from the camera reaches it. Not finite where it is not met.
    double along(const Point& ray) const { return offset / (normal.x * ray.x + normal.y * ray.y + normal.z * ray.z); }
};

// The sum of the squares of the distances, each at right angles to the plane, is the least. Nothing for fewer than
// three points, for those that do not span a plane, and when one of them is not finite.
std::optional<FittedPlane> planeThrough(std::span<const Point> points);
