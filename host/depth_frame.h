// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What one read of the library gives: both planes, 320 x 240, and the frame's information.
#pragma once

#include <array>
#include <cstdint>

#include "VQD_API.h"

struct DepthFrame {
    std::array<uint16_t, VQD_PIXELS> amplitude{}, depth{}; // depth in mm, 0 invalid
    FrameInfo info{};
};
