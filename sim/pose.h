// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Where a camera or a thing stands in a scene. Millimetres; x to the right, y down, z ahead.
#pragma once

#include <array>

#include "optics.h"

namespace sim
{

struct Vec {
    float x, y, z;
};

// A straight line of sight: the points from + s * along. For a camera's ray, s is the depth along its optical axis.
struct Line {
    Vec from, along;
};

// Square of the length of a ray for each millimetre of depth.
inline float stretch(const Vec& along)
{
    return along.z * along.z + along.x * along.x + along.y * along.y;
}

struct Pose {
    std::array<double, 3> position{}; // mm
    std::array<double, 3> angles{};   // degrees: turned about x, then about y, then about z, right-handed
};

// A pose ready for use: what is in the thing's own coordinates, in those of the scene, and back.
class Placement
{
public:
    explicit Placement(const Pose& pose = {});

    Line lineOf(Ray ray) const { return {m_position, turned({ray.x, ray.y, 1})}; }
    Vec turned(const Vec& v) const;
    Line inside(const Line& line) const; // a line of the scene as the thing sees it

private:
    Vec m_position;
    std::array<float, 9> m_rotation; // rows
};

} // namespace sim
