// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The raw frame as it arrives: a header of 512 bytes, then the amplitude and the depth plane, little-endian pixels.
#pragma once

#include "VQD_API.h"

inline constexpr int kStartCode = 0;   // 2 bytes: 0x44 0x33
inline constexpr int kTemperature = 6; // pair, low byte first
inline constexpr int kLogicSecond = 8;
inline constexpr int kLogicFirst = 9;
inline constexpr int kAmplitudePlane = 512;
inline constexpr int kDepthPlane = kAmplitudePlane + 2 * VQD_PIXELS;
static_assert(kDepthPlane + 2 * VQD_PIXELS == VQD_FRAME_BYTES);

inline constexpr unsigned char kStartCode0 = 0x44;
inline constexpr unsigned char kStartCode1 = 0x33;
