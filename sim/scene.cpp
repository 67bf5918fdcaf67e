// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// From what the rays meet to what a pixel gets: several rays mix in it.
#include "scene.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>

#include "room.h"

namespace sim
{

namespace
{

Sensor sensorInSpace(const SceneOptions& options)
{
    return options.rawDepth ? Sensor(options.sensor, options.seed, rawErrors(options.lens))
                            : Sensor(options.sensor, options.seed);
}

// The light of several rays in one pixel. The brighter ones count more for the depth.
Echo mixed(std::span<const Echo> parts)
{
    float light = 0, weighted = 0;
    for (const Echo& echo : parts) {
        light += echo.amplitude;
        weighted += echo.amplitude * echo.depth;
    }
    return light > 0 ? Echo{weighted / light, light / static_cast<float>(parts.size())} : Echo{};
}

class StillScene : public FrameSource
{
public:
    StillScene(Sensor sensor, Field field) : m_sensor(std::move(sensor)), m_field(std::move(field)) {}

    void render(const FrameRequest& request, std::span<uint16_t, kPixels> amplitude,
                std::span<uint16_t, kPixels> depth) override
    {
        m_sensor.expose(m_field, request, amplitude, depth);
    }

private:
    Sensor m_sensor;
    Field m_field;
};

// Each pixel gathers four rays. Where they meet different surfaces, their mixture is a depth at which nothing stands: a
// flying pixel. The rays spread a little wider than the pixel, as the image of a real lens does.
class RoomScene : public FrameSource
{
public:
    explicit RoomScene(const SceneOptions& options)
        : m_sensor(sensorInSpace(options)), m_lines(kPixels), m_echoes(kPixels), m_still(kPixels)
    {
        const Placement camera(options.pose);
        constexpr double kSpread = 0.35;
        constexpr double kShift[4][2] = {{-1, -1}, {1, -1}, {-1, 1}, {1, 1}};
        for (size_t part = 0; part < 4; part++) {
            const auto rays = rawRays(options.lens, kSpread * kShift[part][0], kSpread * kShift[part][1]);
            for (size_t i = 0; i < kPixels; i++) {
                m_lines[i][part] = camera.lineOf(rays[i]);
                m_echoes[i][part] = lookAtRoom(m_lines[i][part]);
            }
        }
        std::ranges::transform(m_echoes, m_still.begin(), [](const Parts& parts) { return mixed(parts); });
    }

    void render(const FrameRequest& request, std::span<uint16_t, kPixels> amplitude,
                std::span<uint16_t, kPixels> depth) override
    {
        const Ball ball = ballAt(request.index);
        m_field = m_still;
        for (size_t i = 0; i < kPixels; i++)
            if (nearBall(ball, m_lines[i][0]))
                m_field[i] = withBall(i, ball);
        m_sensor.expose(m_field, request, amplitude, depth);
    }

private:
    using Parts = std::array<Echo, 4>;

    Echo withBall(size_t pixel, const Ball& ball) const
    {
        Parts parts = m_echoes[pixel];
        for (size_t part = 0; part < parts.size(); part++) {
            const Echo echo = lookAtBall(ball, m_lines[pixel][part]);
            if (echo.amplitude > 0 && echo.depth < parts[part].depth)
                parts[part] = echo;
        }
        return mixed(parts);
    }

    Sensor m_sensor;
    std::vector<std::array<Line, 4>> m_lines;
    std::vector<Parts> m_echoes; // of the room without the ball
    Field m_still;
    Field m_field; // scratch
};

// Sixteen rays a pixel, so that the corners between squares lie where they are to a small part of a pixel.
class BoardScene : public FrameSource
{
public:
    explicit BoardScene(const SceneOptions& options)
        : m_sensor(sensorInSpace(options)), m_series(options.board), m_lines(kPixels), m_field(kPixels)
    {
        constexpr int kSide = 4;
        const Placement camera(options.pose);
        for (int part = 0; part < kSide * kSide; part++) {
            const auto shift = [](int step) { return (step + 0.5) / kSide - 0.5; };
            const auto rays = rawRays(options.lens, shift(part % kSide), shift(part / kSide));
            for (size_t i = 0; i < kPixels; i++)
                m_lines[i][static_cast<size_t>(part)] = camera.lineOf(rays[i]);
        }
    }

    // The last pose stays.
    void render(const FrameRequest& request, std::span<uint16_t, kPixels> amplitude,
                std::span<uint16_t, kPixels> depth) override
    {
        if (!m_series.poses.empty()) {
            const uint64_t turn = request.index / std::max<uint64_t>(m_series.framesPerPose, 1);
            const size_t pose = std::min<uint64_t>(turn, m_series.poses.size() - 1);
            if (m_shown != pose)
                show(pose);
        }
        m_sensor.expose(m_field, request, amplitude, depth);
    }

private:
    void show(size_t pose)
    {
        const Placement place(m_series.poses[pose]);
        for (size_t i = 0; i < kPixels; i++) {
            std::array<Echo, 16> parts;
            std::ranges::transform(m_lines[i], parts.begin(),
                                   [&](const Line& line) { return lookAtBoard(m_series, place, line); });
            m_field[i] = mixed(parts);
        }
        m_shown = pose;
    }

    Sensor m_sensor;
    BoardSeries m_series;
    std::vector<std::array<Line, 16>> m_lines;
    Field m_field;
    std::optional<size_t> m_shown;
};

// One echo for each pixel from its row and column.
template <typename Look> Field fieldOf(Look look)
{
    Field field;
    field.reserve(kPixels);
    for (int row = 0; row < kRows; row++)
        for (int column = 0; column < kColumns; column++)
            field.push_back(look(row, column));
    return field;
}

Field wallField(const SceneOptions& options)
{
    constexpr float kPaint = 0.6f;
    const auto distance = static_cast<float>(options.wallDistance), slope = static_cast<float>(options.wallSlope);
    const float steepness = std::sqrt(1 + slope * slope);
    const Placement camera(options.pose);
    return fieldOf([&](int row, int column) {
        const auto [from, along] = camera.lineOf(rayThrough(options.lens, column, row));
        const float facing = along.z - slope * along.x;
        const float depth = (distance + slope * from.x - from.z) / facing;
        if (!(facing > 0 && depth > 0))
            return Echo{};
        return echoFrom(along, depth, facing / (std::sqrt(stretch(along)) * steepness), kPaint);
    });
}

Field rampField()
{
    return fieldOf([](int row, int column) {
        return Echo{500.0f + 10.0f * static_cast<float>(column), 400.0f + 2.0f * static_cast<float>(row)};
    });
}

} // namespace

std::shared_ptr<FrameSource> makeScene(const SceneOptions& options)
{
    switch (options.kind) {
    case SceneKind::wall:
        return std::make_shared<StillScene>(sensorInSpace(options), wallField(options));
    case SceneKind::ramp:
        return std::make_shared<StillScene>(Sensor(options.sensor, options.seed), rampField());
    case SceneKind::plane:
        return std::make_shared<StillScene>(Sensor(options.sensor, options.seed), Field(kPixels, Echo{1500, 1000}));
    case SceneKind::board:
        return std::make_shared<BoardScene>(options);
    case SceneKind::room:
        break;
    }
    return std::make_shared<RoomScene>(options);
}

std::optional<SceneKind> sceneByName(std::string_view name)
{
    constexpr std::pair<std::string_view, SceneKind> kNames[] = {{"room", SceneKind::room},
                                                                 {"wall", SceneKind::wall},
                                                                 {"ramp", SceneKind::ramp},
                                                                 {"plane", SceneKind::plane},
                                                                 {"board", SceneKind::board}};
    const auto* found =
        std::find_if(std::begin(kNames), std::end(kNames), [&](const auto& row) { return row.first == name; });
    return found == std::end(kNames) ? std::nullopt : std::optional(found->second);
}

} // namespace sim
