// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What the camera's registers do to a frame on its way from the sensor to the host.
#pragma once

#include <cstdint>
#include <span>

#include "wire.h"

namespace sim
{

struct FramePlanes {
    std::span<uint16_t, kPixels> amplitude, depth;
};

// Modulation frequency, integration time and flips for every model; depth range and edge removal only where
// the camera does them.
void applyRegisters(const Image& registers, bool correctsInCamera, const FramePlanes& planes);

// A frame without illumination: the sensor's own noise, no depth.
void darken(uint64_t index, const FramePlanes& planes);

} // namespace sim
