// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A frame's planes of 320 x 240 as files in memory.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "VQD_API.h"

using Plane = std::span<const uint16_t, VQD_PIXELS>;
using Bytes = std::vector<uint8_t>;

using Values = std::span<const uint16_t>;

// For eyes: 8-bit colours, 3 bytes a value, from near, red, to far, violet; invalid values are black.
Bytes depthColours(Values depth);

// For eyes: 8-bit grey, a byte a value, brightened so that dim parts show.
Bytes amplitudeGreys(Values amplitude);

// A picture of any size from 8-bit colours.
Bytes colourPicture(const Bytes& pixels, unsigned width, unsigned height);

// A plane in the colours of depthColours().
Bytes depthPicture(Plane depth);

// A plane in the greys of amplitudeGreys().
Bytes amplitudePicture(Plane amplitude);

// For programs: every value as it is, rows from the top.
Bytes exactPicture(Plane plane); // PNG, 16-bit grey
Bytes pgmFile(Plane plane);      // 16-bit, high byte first, as that format has it
Bytes npyFile(Plane plane);      // NumPy 1.0: array of (240, 320), uint16
Bytes rawFile(Plane plane);      // 76800 values of two bytes, the low byte first
