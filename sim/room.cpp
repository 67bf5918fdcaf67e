// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The room's shapes and paint. Only sums, products, quotients and square roots, so that every machine draws the same
// room.
#include "room.h"

#include <array>
#include <cmath>
#include <limits>
#include <utility>

#include "noise.h"

namespace sim
{

static constexpr float kLeft = -2000, kRight = 2300, kFloor = 1150, kCeiling = -1350, kBack = 5400;
static constexpr float kBallRadius = 220;

Echo echoFrom(const Vec& along, float depth, float cosine, float reflectance)
{
    constexpr float kCountsAtOneMetre = 6000;
    const float longer = stretch(along);
    const float metres = depth / 1000;
    return {depth, kCountsAtOneMetre * reflectance * cosine / (metres * metres * longer * longer)};
}

static bool within(float value, float least, float most)
{
    return value >= least && value < most;
}

// The number of the tile of this width that a coordinate falls on.
static int tile(float at, float width)
{
    return static_cast<int>(std::floor(at / width));
}

// A fixed random number in 0 to 1 for each pair.
static float shade(int a, int b)
{
    const auto key = static_cast<uint64_t>(static_cast<uint32_t>(a)) << 32 | static_cast<uint32_t>(b);
    return static_cast<float>(scramble(key) >> 40) / static_cast<float>(1 << 24);
}

static float paintOfBack(float x, float y)
{
    if (within(x, 1150, 1950) && y > -850) // an open door to a dark corridor
        return 0.01f;
    if (within(x, -1000, 200) && within(y, -750, 150)) { // a test chart
        return (tile(x, 150) + tile(y, 150)) % 2 == 0 ? 0.85f : 0.12f;
    }
    return y > kFloor - 100 ? 0.3f : 0.7f;
}

static float paintOfFloor(float x, float z)
{
    const int plank = tile(x, 190);
    const float along = z + 1400 * shade(plank, 0);
    const bool seam = within(x - static_cast<float>(plank) * 190, 0, 8);
    return seam ? 0.1f : 0.3f + 0.3f * shade(plank, tile(along, 1400));
}

static float paintOfLeft(float y, float z)
{
    if (!within(z, 2300, 4300) || !within(y, -700, kFloor - 50)) // beside the book shelf
        return 0.6f;
    const int board = tile(y + 700, 300);
    const float height = y + 700 - static_cast<float>(board) * 300;
    const int book = tile(z, 70);
    if (height > 270)
        return 0.5f;
    return height < 40 + 60 * shade(book, board) ? 0.06f : 0.15f + 0.6f * shade(board, book);
}

static float paintOfRight(float y)
{
    return y > 200 ? 0.35f : 0.65f;
}

static Echo lookAtWalls(const Line& line)
{
    const auto& [from, along] = line;
    const float length = std::sqrt(stretch(along));
    const float toSide = ((along.x < 0 ? kLeft : kRight) - from.x) / along.x;
    const float toLevel = ((along.y < 0 ? kCeiling : kFloor) - from.y) / along.y;
    const float toBack = along.z > 0 ? (kBack - from.z) / along.z : std::numeric_limits<float>::infinity();
    const auto at = [&](float depth) {
        return Vec{from.x + along.x * depth, from.y + along.y * depth, from.z + along.z * depth};
    };
    if (toBack <= toSide && toBack <= toLevel)
        return echoFrom(along, toBack, along.z / length, paintOfBack(at(toBack).x, at(toBack).y));
    if (toSide < toLevel) {
        const Vec point = at(toSide);
        const float paint = along.x < 0 ? paintOfLeft(point.y, point.z) : paintOfRight(point.y);
        return echoFrom(along, toSide, std::fabs(along.x) / length, paint);
    }
    const float paint = along.y < 0 ? 0.75f : paintOfFloor(at(toLevel).x, at(toLevel).z);
    return echoFrom(along, toLevel, std::fabs(along.y) / length, paint);
}

namespace
{
// A box that stands turned about the vertical.
struct Box {
    std::array<float, 3> centre, half;
    float cosine, sine;
    float paint, stripe; // the stripe runs around the middle
};
} // namespace

static constexpr Box kBoxes[] = {
    {{-950, 850, 2700}, {330, 300, 260}, 0.8f, 0.6f, 0.5f, 0.2f},     // a carton
    {{1250, 400, 3500}, {300, 750, 250}, 0.96f, -0.28f, 0.4f, 0.65f}, // a cupboard
};

static std::array<float, 3> turned(const Box& box, float x, float y, float z)
{
    return {box.cosine * x + box.sine * z, y, box.cosine * z - box.sine * x};
}

static Echo lookAtBox(const Box& box, const Line& line)
{
    constexpr float kHalfStripe = 40;
    const auto from =
        turned(box, line.from.x - box.centre[0], line.from.y - box.centre[1], line.from.z - box.centre[2]);
    const auto along = turned(box, line.along.x, line.along.y, line.along.z);
    float enter = 0, leave = std::numeric_limits<float>::max();
    size_t face = 0;
    for (size_t axis = 0; axis < 3; axis++) {
        const float slope = along[axis] == 0 ? 1e-9f : along[axis];
        float first = (-box.half[axis] - from[axis]) / slope, second = (box.half[axis] - from[axis]) / slope;
        if (first > second)
            std::swap(first, second);
        if (first > enter) {
            enter = first;
            face = axis;
        }
        leave = second < leave ? second : leave;
    }
    if (!(enter > 0 && enter < leave))
        return {};
    const float length = std::sqrt(stretch(line.along));
    const float height = from[1] + along[1] * enter;
    const float paint = std::fabs(height) < kHalfStripe && face != 1 ? box.stripe : box.paint;
    return echoFrom(line.along, enter, std::fabs(along[face]) / length, paint);
}

Echo lookAtRoom(Line line)
{
    if (std::isnan(line.along.x) || std::isnan(line.along.y))
        return {};
    // A ray along an axis would divide by zero; the shift is far below a pixel.
    line.along.x = line.along.x == 0 ? 1e-9f : line.along.x;
    line.along.y = line.along.y == 0 ? 1e-9f : line.along.y;
    Echo nearest = lookAtWalls(line);
    for (const Box& box : kBoxes) {
        const Echo echo = lookAtBox(box, line);
        if (echo.amplitude > 0 && echo.depth < nearest.depth)
            nearest = echo;
    }
    return nearest;
}

// 0 to 1 and back in `period` frames, slow at both ends.
static float swing(uint64_t frame, uint64_t period)
{
    const float phase = static_cast<float>(frame % period) / static_cast<float>(period);
    const float way = phase < 0.5f ? 2 * phase : 2 - 2 * phase;
    return way * way * (3 - 2 * way);
}

Ball ballAt(uint64_t frame)
{
    constexpr uint64_t kCrossing = 180, kBounce = 36;
    constexpr float kHighest = 1300;
    const float phase = static_cast<float>(frame % kBounce) / kBounce;
    const float across = swing(frame, kCrossing);
    return {-650 + 1500 * across, kFloor - kBallRadius - kHighest * 4 * phase * (1 - phase), 2050 - 350 * across};
}

namespace
{
// How a line passes the ball.
struct Passing {
    Vec centre; // of the ball, from where the line begins
    float length2, along, centre2;

    Passing(const Ball& ball, const Line& line)
        : centre{ball.x - line.from.x, ball.y - line.from.y, ball.z - line.from.z}, length2(stretch(line.along)),
          along(line.along.x * centre.x + line.along.y * centre.y + line.along.z * centre.z),
          centre2(centre.x * centre.x + centre.y * centre.y + centre.z * centre.z)
    {
    }
};
} // namespace

bool nearBall(const Ball& ball, const Line& line)
{
    constexpr float kGenerous = kBallRadius * 1.2f;
    const Passing passing(ball, line);
    return passing.along > 0 &&
           passing.along * passing.along > passing.length2 * (passing.centre2 - kGenerous * kGenerous);
}

Echo lookAtBall(const Ball& ball, const Line& line)
{
    const Passing passing(ball, line);
    const float inside =
        passing.along * passing.along - passing.length2 * (passing.centre2 - kBallRadius * kBallRadius);
    const float depth = (passing.along - std::sqrt(inside)) / passing.length2;
    if (!(inside > 0 && depth > 0))
        return {};
    const float cosine = std::sqrt(inside / passing.length2) / kBallRadius;
    const float up = (passing.centre.y - line.along.y * depth) / kBallRadius;
    const bool band = within(up, -0.2f, 0.2f);
    return echoFrom(line.along, depth, cosine, band ? 0.2f : 0.8f);
}

} // namespace sim
