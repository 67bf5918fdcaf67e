// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The pixel check filters as pure functions over `count` pixels.
#pragma once

#include <cstddef>
#include <cstdint>

#include "simd/kernels.h"

namespace scalar
{
void AmplitudeCheck(const uint16_t* amplitude, uint16_t* depth, size_t count, uint8_t threshold, float scale);
void ScatteringCheck(const uint16_t* amplitude, uint16_t* depth, size_t count, uint8_t threshold, float scale);
void MinMaxCheck(uint16_t* image, size_t count, uint16_t minimum, uint16_t maximum);
} // namespace scalar

namespace simd
{
// Clears depth whose amplitude lies below threshold * scale.
void AmplitudeCheck(const uint16_t* amplitude, uint16_t* depth, size_t count, uint8_t threshold, float scale);

// Clears depth whose amplitude lies below threshold / (depth squared * scale).
void ScatteringCheck(const uint16_t* amplitude, uint16_t* depth, size_t count, uint8_t threshold, float scale);

// Clears pixels outside minimum to maximum.
void MinMaxCheck(uint16_t* image, size_t count, uint16_t minimum, uint16_t maximum);
} // namespace simd
