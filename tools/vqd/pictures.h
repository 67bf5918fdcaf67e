// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The planes of a frame, 320 x 240 values each, as files in memory.
#pragma once

#include <cstdint>
#include <span>

#include "VQD_API.h"
#include "host/bytes.h"

using Plane = std::span<const uint16_t, VQD_PIXELS>;

using Values = std::span<const uint16_t>;

// For people: 8-bit colours, 3 bytes for each value. Near is red, far is violet, invalid is black.
Bytes depthColours(Values depth);

// For people: 8-bit grey, a byte for each value, brightened so that dim parts are visible.
Bytes amplitudeGreys(Values amplitude);

// A picture of any size from 8-bit colours.
Bytes colourPicture(const Bytes& pixels, unsigned width, unsigned height);

// A plane in the colours of depthColours().
Bytes depthPicture(Plane depth);

// A plane in the greys of amplitudeGreys().
Bytes amplitudePicture(Plane amplitude);

// For programs: the exact values, rows from the top.
Bytes exactPicture(Plane plane); // PNG, 16-bit grey
Bytes pgmFile(Plane plane);      // 16-bit, the high byte first, as the format demands
Bytes npyFile(Plane plane);      // NumPy 1.0: array of (240, 320), uint16
Bytes rawFile(Plane plane);      // 76800 values of two bytes, the low byte first
Bytes csvFile(Plane plane);      // a line of decimal numbers for each row, with commas between them and no header
