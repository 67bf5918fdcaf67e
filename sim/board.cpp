// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "board.h"

#include <cmath>

namespace sim
{

static Echo lookAtWall(const BoardSeries& series, const Line& line)
{
    constexpr float kPaint = 0.4f;
    const float depth = (static_cast<float>(series.wall) - line.from.z) / line.along.z;
    if (!(depth > 0 && line.along.z > 0))
        return {};
    return echoFrom(line.along, depth, line.along.z / std::sqrt(stretch(line.along)), kPaint);
}

Echo lookAtBoard(const BoardSeries& series, const Placement& place, const Line& line)
{
    constexpr float kWhite = 0.8f, kBlack = 0.1f;
    const Echo behind = lookAtWall(series, line);
    const auto [from, along] = place.inside(line); // the board is the plane z = 0
    const float depth = -from.z / along.z;
    if (!(depth > 0) || (behind.amplitude > 0 && depth > behind.depth))
        return behind;
    const auto square = static_cast<float>(series.square);
    const float column = (from.x + along.x * depth) / square + static_cast<float>(series.columns) / 2;
    const float row = (from.y + along.y * depth) / square + static_cast<float>(series.rows) / 2;
    const auto columns = static_cast<float>(series.columns), rows = static_cast<float>(series.rows);
    if (!(column > -1 && row > -1 && column < columns + 1 && row < rows + 1))
        return behind;
    const bool isSquare = column >= 0 && row >= 0 && column < columns && row < rows;
    const bool isBlack = isSquare && (static_cast<int>(column) + static_cast<int>(row)) % 2 == 0;
    const float cosine = std::fabs(along.z) / std::sqrt(stretch(along));
    return echoFrom(line.along, depth, cosine, isBlack ? kBlack : kWhite);
}

} // namespace sim
