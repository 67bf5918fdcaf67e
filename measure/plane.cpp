// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The normal is the eigenvector of the points' covariance with the smallest eigenvalue. Distances along the optical
// axis alone would make the residuals of an inclined plane too large.
#include "measure/plane.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace
{

struct Eigen {
    double values[3];
    double vectors[3][3]; // columns
};

// Jacobi's rotations, which lose no accuracy when eigenvalues are close or very different.
Eigen eigenOf(double (&m)[3][3])
{
    constexpr int kSweeps = 12; // it converges quadratically, so five are enough as a rule
    Eigen eigen{{}, {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
    for (int sweep = 0; sweep < kSweeps; ++sweep) {
        for (const auto& [p, q] : {std::pair(0, 1), std::pair(0, 2), std::pair(1, 2)}) {
            if (m[p][q] == 0)
                continue;
            const double theta = (m[q][q] - m[p][p]) / (2 * m[p][q]);
            const double t = (theta < 0 ? -1 : 1) / (std::abs(theta) + std::hypot(theta, 1));
            const double c = 1 / std::hypot(t, 1), s = t * c;
            for (int k = 0; k < 3; ++k) { // the columns, then the rows
                const double kp = m[k][p], kq = m[k][q];
                m[k][p] = c * kp - s * kq;
                m[k][q] = s * kp + c * kq;
            }
            for (int k = 0; k < 3; ++k) {
                const double pk = m[p][k], qk = m[q][k];
                m[p][k] = c * pk - s * qk;
                m[q][k] = s * pk + c * qk;
                const double vp = eigen.vectors[k][p], vq = eigen.vectors[k][q];
                eigen.vectors[k][p] = c * vp - s * vq;
                eigen.vectors[k][q] = s * vp + c * vq;
            }
            m[p][q] = m[q][p] = 0;
        }
    }
    for (int i = 0; i < 3; ++i)
        eigen.values[i] = m[i][i];
    return eigen;
}

} // namespace

std::optional<FittedPlane> planeThrough(std::span<const Point> points)
{
    constexpr double kFlat = 1e-9; // points on a line, but for rounding
    const auto n = static_cast<double>(points.size());
    Point centre{};
    for (const Point& p : points)
        centre = {centre.x + p.x / n, centre.y + p.y / n, centre.z + p.z / n};
    double m[3][3] = {};
    for (const Point& p : points) {
        const double d[3] = {p.x - centre.x, p.y - centre.y, p.z - centre.z};
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j)
                m[i][j] += d[i] * d[j] / n;
    }
    const Eigen eigen = eigenOf(m);
    int order[3] = {0, 1, 2};
    if (points.size() < 3 || !std::isfinite(eigen.values[0] + eigen.values[1] + eigen.values[2]))
        return std::nullopt;
    std::ranges::sort(order, {}, [&](int i) { return eigen.values[i]; });
    if (eigen.values[order[1]] <= kFlat * eigen.values[order[2]])
        return std::nullopt;
    const auto& v = eigen.vectors;
    const double away = v[2][order[0]] < 0 ? -1 : 1;
    const Point normal{away * v[0][order[0]], away * v[1][order[0]], away * v[2][order[0]]};
    return FittedPlane{std::sqrt(std::max(eigen.values[order[0]], 0.0)),
                       std::acos(std::min(normal.z, 1.0)) * 180 / std::numbers::pi, normal,
                       normal.x * centre.x + normal.y * centre.y + normal.z * centre.z};
}
