// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "pose.h"

#include <cmath>
#include <numbers>

namespace sim
{

Placement::Placement(const Pose& pose)
    : m_position{static_cast<float>(pose.position[0]), static_cast<float>(pose.position[1]),
                 static_cast<float>(pose.position[2])}
{
    double c[3], s[3];
    for (size_t i = 0; i < 3; i++) {
        const double angle = pose.angles[i] * std::numbers::pi / 180;
        c[i] = std::cos(angle);
        s[i] = std::sin(angle);
    }
    const double rotation[] = {c[2] * c[1],
                               c[2] * s[1] * s[0] - s[2] * c[0],
                               c[2] * s[1] * c[0] + s[2] * s[0],
                               s[2] * c[1],
                               s[2] * s[1] * s[0] + c[2] * c[0],
                               s[2] * s[1] * c[0] - c[2] * s[0],
                               -s[1],
                               c[1] * s[0],
                               c[1] * c[0]};
    for (size_t i = 0; i < m_rotation.size(); i++)
        m_rotation[i] = static_cast<float>(rotation[i]);
}

Vec Placement::turned(const Vec& v) const
{
    const auto& r = m_rotation;
    return {r[0] * v.x + r[1] * v.y + r[2] * v.z, r[3] * v.x + r[4] * v.y + r[5] * v.z,
            r[6] * v.x + r[7] * v.y + r[8] * v.z};
}

Line Placement::inside(const Line& line) const
{
    const auto back = [&r = m_rotation](const Vec& v) {
        return Vec{r[0] * v.x + r[3] * v.y + r[6] * v.z, r[1] * v.x + r[4] * v.y + r[7] * v.z,
                   r[2] * v.x + r[5] * v.y + r[8] * v.z};
    };
    return {back({line.from.x - m_position.x, line.from.y - m_position.y, line.from.z - m_position.z}),
            back(line.along)};
}

} // namespace sim
