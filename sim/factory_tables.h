// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The calibration tables of a new host-corrected camera, and the errors of its raw depth that they undo.
#pragma once

#include <cstdint>
#include <vector>

#include "optics.h"

namespace sim
{

// Both tables go by the undistorted pixel: the host resamples first and corrects then.

// 2048 factors in ten-thousandths, big-endian; entry 8 * i is the cosine of the ray i pixels from the centre.
std::vector<uint8_t> orthogonalTable();

// 80 x 60 offsets in millimetres, big-endian, one a block of 4 x 4 pixels: a smooth pattern of 0 to 40.
std::vector<uint8_t> fppnTable();

// The sensor measures along the ray, and each block starts a little early.
struct RawError {
    float offset = 0;  // millimetres short of the depth
    float stretch = 1; // distance over depth

    float of(float depth) const { return (depth - offset) * stretch; }
};

// One for each raw pixel behind this lens.
std::vector<RawError> rawErrors(const Optics& lens);

} // namespace sim
