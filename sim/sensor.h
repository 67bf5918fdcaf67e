// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What a sensor makes of the light that comes back: noise, errors, and pixels too dark to be measured.
#pragma once

#include <span>
#include <vector>

#include "factory_tables.h"
#include "frame_source.h"
#include "room.h"

namespace sim
{

using Field = std::vector<Echo>; // one for each pixel

struct SensorModel {
    double noise = 1; // scale of all noise; 0 for exact scenes
    // Variance of the amplitude in square counts: read-out, and shot noise for each count.
    double readOut = 6, shot = 0.2;
    // Deviation of the depth in mm: of the electronics, and of the phase, divided by the amplitude; their squares add
    // up.
    double jitter = 2, phase = 2500;
    // Errors that stay, in mm: a deviation from pixel to pixel, the same for all, and growing with each frame.
    double fixedPattern = 0, bias = 0, drift = 0;
    double fill = 1; // share of the pixels that are measured in a frame
};

class Sensor
{
public:
    // `errors`: of the raw depth of a host-corrected camera, one for each pixel or none.
    Sensor(const SensorModel& model, uint64_t seed, std::vector<RawError> errors = {});

    void expose(const Field& field, const FrameRequest& request, std::span<uint16_t, kPixels> amplitude,
                std::span<uint16_t, kPixels> depth) const;

private:
    float amplitudeNoise(const Echo& echo) const;
    float depthNoise(const Echo& echo) const;

    uint64_t m_key;
    float m_noise, m_readOut, m_shot, m_jitter2, m_phase, m_drift;
    uint32_t m_lost;            // of 2^32 random numbers, those below which a pixel is not measured
    std::vector<float> m_still; // error that stays, one for each pixel
    std::vector<RawError> m_errors;
};

} // namespace sim
