// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A frame's planes of 320 x 240 as PNG files in memory.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "VQD_API.h"

using Plane = std::span<const uint16_t, VQD_PIXELS>;
using Bytes = std::vector<uint8_t>;

// For eyes: 8-bit colours from near, red, to far, violet; invalid pixels are black.
Bytes depthPicture(Plane depth);

// For eyes: 8-bit grey, brightened so that dim parts show.
Bytes amplitudePicture(Plane amplitude);

// For programs: 16-bit grey, every value as it is.
Bytes exactPicture(Plane plane);
