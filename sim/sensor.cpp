// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "sensor.h"

#include <algorithm>
#include <cmath>

#include "noise.h"
#include "registers.h"

namespace sim
{

// Negative values and what is no number count as 0.
static float bounded(double value, double most)
{
    return value > 0 ? static_cast<float>(std::min(value, most)) : 0;
}

Sensor::Sensor(const SensorModel& model, uint64_t seed, std::vector<RawError> errors)
    : m_key(scramble(seed)), m_noise(bounded(model.noise, 1000)), m_readOut(bounded(model.readOut, 1e6)),
      m_shot(bounded(model.shot, 1e6)), m_jitter2(bounded(model.jitter * model.jitter, 1e9)),
      m_phase(bounded(model.phase, 1e9)), m_drift(static_cast<float>(model.drift)),
      m_lost(static_cast<uint32_t>(bounded(1 - model.fill, 1) * static_cast<float>(0xFFFFFF00))),
      m_still(kPixels, static_cast<float>(model.bias)), m_errors(std::move(errors))
{
    constexpr uint64_t kPattern = 0x5DEECE66D; // apart from the keys of frames
    if (model.fixedPattern > 0)
        for (size_t i = 0; i < kPixels; i++)
            m_still[i] += bounded(model.fixedPattern, 1e6) * bell(scramble(scramble(m_key ^ kPattern) + i));
}

void Sensor::expose(const Field& field, const FrameRequest& request, std::span<uint16_t, kPixels> amplitude,
                    std::span<uint16_t, kPixels> depth) const
{
    constexpr uint16_t kTooDark = 12;
    const auto count = [](float value) {
        if (!(value > 0))
            return uint16_t{0};
        return value >= UINT16_MAX ? uint16_t{UINT16_MAX} : static_cast<uint16_t>(value + 0.5f);
    };
    const uint64_t key = scramble(m_key ^ scramble(request.index));
    const bool raw = !m_errors.empty() && hostCorrects(request.product);
    const float drift = m_drift * static_cast<float>(request.index);
    for (size_t i = 0; i < kPixels; i++) {
        const Echo& echo = field[i];
        amplitude[i] = count(echo.amplitude + m_noise * amplitudeNoise(echo) * bell(scramble(key + 2 * i)));
        const float exact = raw ? m_errors[i].of(echo.depth) : echo.depth;
        const float measured =
            exact + m_still[i] + drift + m_noise * depthNoise(echo) * bell(scramble(key + 2 * i + 1));
        const bool lost = m_lost > 0 && scramble(key + 2 * kPixels + i) >> 32 < m_lost;
        depth[i] = amplitude[i] < kTooDark || lost ? uint16_t{0} : count(measured);
    }
}

float Sensor::amplitudeNoise(const Echo& echo) const
{
    return std::sqrt(m_readOut + m_shot * echo.amplitude);
}

float Sensor::depthNoise(const Echo& echo) const
{
    const float phase = m_phase / std::max(echo.amplitude, 1.0f);
    return std::sqrt(m_jitter2 + phase * phase);
}

} // namespace sim
