// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The room's shapes and paint. Only sums, products, quotients and square roots, so that every machine draws the same
// room.
#include "room.h"

#include <array>
#include <cmath>
#include <utility>

#include "noise.h"

namespace sim
{

static constexpr float kLeft = -2000, kRight = 2300, kFloor = 1150, kCeiling = -1350, kBack = 5400;
static constexpr float kBallRadius = 220;

Echo echoFrom(Ray ray, float depth, float cosine, float reflectance)
{
    constexpr float kCountsAtOneMetre = 6000;
    const float stretch = 1 + ray.x * ray.x + ray.y * ray.y; // square of distance over depth
    const float metres = depth / 1000;
    return {depth, kCountsAtOneMetre * reflectance * cosine / (metres * metres * stretch * stretch)};
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

static Echo lookAtWalls(Ray ray)
{
    const float length = std::sqrt(1 + ray.x * ray.x + ray.y * ray.y);
    const float toSide = (ray.x < 0 ? kLeft : kRight) / ray.x;
    const float toLevel = (ray.y < 0 ? kCeiling : kFloor) / ray.y;
    if (kBack <= toSide && kBack <= toLevel)
        return echoFrom(ray, kBack, 1 / length, paintOfBack(ray.x * kBack, ray.y * kBack));
    if (toSide < toLevel) {
        const float y = ray.y * toSide;
        const float paint = ray.x < 0 ? paintOfLeft(y, toSide) : paintOfRight(y);
        return echoFrom(ray, toSide, std::fabs(ray.x) / length, paint);
    }
    const float paint = ray.y < 0 ? 0.75f : paintOfFloor(ray.x * toLevel, toLevel);
    return echoFrom(ray, toLevel, std::fabs(ray.y) / length, paint);
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

static Echo lookAtBox(const Box& box, Ray ray)
{
    constexpr float kHalfStripe = 40;
    const auto from = turned(box, -box.centre[0], -box.centre[1], -box.centre[2]);
    const auto along = turned(box, ray.x, ray.y, 1);
    float enter = 0, leave = kBack;
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
    const float length = std::sqrt(1 + ray.x * ray.x + ray.y * ray.y);
    const float height = from[1] + along[1] * enter;
    const float paint = std::fabs(height) < kHalfStripe && face != 1 ? box.stripe : box.paint;
    return echoFrom(ray, enter, std::fabs(along[face]) / length, paint);
}

Echo lookAtRoom(Ray ray)
{
    if (std::isnan(ray.x) || std::isnan(ray.y))
        return {};
    // A ray straight ahead would divide by zero; the shift is far below a pixel.
    ray.x = ray.x == 0 ? 1e-9f : ray.x;
    ray.y = ray.y == 0 ? 1e-9f : ray.y;
    Echo nearest = lookAtWalls(ray);
    for (const Box& box : kBoxes) {
        const Echo echo = lookAtBox(box, ray);
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

bool nearBall(const Ball& ball, Ray ray)
{
    constexpr float kGenerous = kBallRadius * 1.2f;
    const float length2 = 1 + ray.x * ray.x + ray.y * ray.y;
    const float along = ray.x * ball.x + ray.y * ball.y + ball.z;
    const float centre2 = ball.x * ball.x + ball.y * ball.y + ball.z * ball.z;
    return along * along > length2 * (centre2 - kGenerous * kGenerous);
}

Echo lookAtBall(const Ball& ball, Ray ray)
{
    const float length2 = 1 + ray.x * ray.x + ray.y * ray.y;
    const float along = ray.x * ball.x + ray.y * ball.y + ball.z;
    const float centre2 = ball.x * ball.x + ball.y * ball.y + ball.z * ball.z;
    const float inside = along * along - length2 * (centre2 - kBallRadius * kBallRadius);
    if (!(inside > 0))
        return {};
    const float depth = (along - std::sqrt(inside)) / length2;
    const float cosine = std::sqrt(inside / length2) / kBallRadius;
    const float up = (ball.y - ray.y * depth) / kBallRadius;
    const bool band = within(up, -0.2f, 0.2f);
    return echoFrom(ray, depth, cosine, band ? 0.2f : 0.8f);
}

} // namespace sim
