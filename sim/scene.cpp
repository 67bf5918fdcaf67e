// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// From what the rays meet to what the sensor measures: mixing within a pixel, noise, and pixels too dark to be
// measured.
#include "scene.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>

#include "factory_tables.h"
#include "optics.h"
#include "noise.h"
#include "registers.h"
#include "room.h"

namespace sim
{

namespace
{

using Field = std::vector<Echo>; // one for each pixel

// A noisy, finite look at a field.
class Sensor
{
public:
    // `errors`: of the raw depth, one for each pixel or none.
    explicit Sensor(const SceneOptions& options, std::vector<RawError> errors = {})
        : m_key(scramble(options.seed)),
          m_noise(options.noise > 0 ? static_cast<float>(std::min(options.noise, kMostNoise)) : 0),
          m_errors(std::move(errors))
    {
    }

    void expose(const Field& field, const FrameRequest& request, std::span<uint16_t, kPixels> amplitude,
                std::span<uint16_t, kPixels> depth) const
    {
        const uint64_t key = scramble(m_key ^ scramble(request.index));
        const bool raw = !m_errors.empty() && hostCorrects(request.product);
        for (size_t i = 0; i < kPixels; i++) {
            const Echo& echo = field[i];
            amplitude[i] = count(echo.amplitude + m_noise * amplitudeNoise(echo) * bell(scramble(key + 2 * i)));
            const float exact = raw ? m_errors[i].of(echo.depth) : echo.depth;
            const float measured = exact + m_noise * depthNoise(echo) * bell(scramble(key + 2 * i + 1));
            depth[i] = amplitude[i] < kTooDark ? uint16_t{0} : count(measured);
        }
    }

private:
    static constexpr double kMostNoise = 1000;
    static constexpr uint16_t kTooDark = 12;

    // Read-out noise and shot noise, in counts.
    static float amplitudeNoise(const Echo& echo) { return std::sqrt(6 + 0.2f * echo.amplitude); }

    // Jitter of the electronics, and the phase of a weak signal, in millimetres.
    static float depthNoise(const Echo& echo)
    {
        const float phase = 2500 / std::max(echo.amplitude, 1.0f);
        return std::sqrt(4 + phase * phase);
    }

    static uint16_t count(float value)
    {
        if (!(value > 0))
            return 0;
        return value >= UINT16_MAX ? UINT16_MAX : static_cast<uint16_t>(value + 0.5f);
    }

    uint64_t m_key;
    float m_noise;
    std::vector<RawError> m_errors;
};

Sensor sensorInSpace(const SceneOptions& options)
{
    return options.rawDepth ? Sensor(options, rawErrors(options.lens)) : Sensor(options);
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
        : m_sensor(sensorInSpace(options)), m_rays(kPixels), m_echoes(kPixels), m_still(kPixels)
    {
        constexpr double kSpread = 0.35;
        constexpr double kShift[4][2] = {{-1, -1}, {1, -1}, {-1, 1}, {1, 1}};
        for (size_t part = 0; part < 4; part++) {
            const auto rays = rawRays(options.lens, kSpread * kShift[part][0], kSpread * kShift[part][1]);
            for (size_t i = 0; i < kPixels; i++) {
                m_rays[i][part] = rays[i];
                m_echoes[i][part] = lookAtRoom(rays[i]);
            }
        }
        std::transform(m_echoes.begin(), m_echoes.end(), m_still.begin(), mixed);
    }

    void render(const FrameRequest& request, std::span<uint16_t, kPixels> amplitude,
                std::span<uint16_t, kPixels> depth) override
    {
        const Ball ball = ballAt(request.index);
        m_field = m_still;
        for (size_t i = 0; i < kPixels; i++)
            if (nearBall(ball, m_rays[i][0]))
                m_field[i] = withBall(i, ball);
        m_sensor.expose(m_field, request, amplitude, depth);
    }

private:
    using Parts = std::array<Echo, 4>;

    static Echo mixed(const Parts& parts)
    {
        float light = 0, weighted = 0;
        for (const Echo& echo : parts) {
            light += echo.amplitude;
            weighted += echo.amplitude * echo.depth;
        }
        return light > 0 ? Echo{weighted / light, light / 4} : Echo{};
    }

    Echo withBall(size_t pixel, const Ball& ball) const
    {
        Parts parts = m_echoes[pixel];
        for (size_t part = 0; part < parts.size(); part++) {
            const Echo echo = lookAtBall(ball, m_rays[pixel][part]);
            if (echo.amplitude > 0 && echo.depth < parts[part].depth)
                parts[part] = echo;
        }
        return mixed(parts);
    }

    Sensor m_sensor;
    std::vector<std::array<Ray, 4>> m_rays;
    std::vector<Parts> m_echoes; // of the room without the ball
    Field m_still;
    Field m_field; // scratch
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

Field wallField(const Optics& lens)
{
    constexpr float kDistance = 2000, kTilt = 0.2f, kPaint = 0.6f;
    const float steepness = std::sqrt(1 + kTilt * kTilt);
    return fieldOf([&](int row, int column) {
        const Ray ray = rayThrough(lens, column, row);
        const float facing = 1 - kTilt * ray.x;
        if (!(facing > 0))
            return Echo{};
        const float length = std::sqrt(1 + ray.x * ray.x + ray.y * ray.y);
        return echoFrom(ray, kDistance / facing, facing / (length * steepness), kPaint);
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
        return std::make_shared<StillScene>(sensorInSpace(options), wallField(options.lens));
    case SceneKind::ramp:
        return std::make_shared<StillScene>(Sensor(options), rampField());
    case SceneKind::plane:
        return std::make_shared<StillScene>(Sensor(options), Field(kPixels, Echo{1500, 1000}));
    case SceneKind::room:
        break;
    }
    return std::make_shared<RoomScene>(options);
}

std::optional<SceneKind> sceneByName(std::string_view name)
{
    constexpr std::pair<std::string_view, SceneKind> kNames[] = {
        {"room", SceneKind::room}, {"wall", SceneKind::wall}, {"ramp", SceneKind::ramp}, {"plane", SceneKind::plane}};
    const auto* found =
        std::find_if(std::begin(kNames), std::end(kNames), [&](const auto& row) { return row.first == name; });
    return found == std::end(kNames) ? std::nullopt : std::optional(found->second);
}

} // namespace sim
