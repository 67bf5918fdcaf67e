// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Conversions that are defined for every value.
#pragma once

#include <cstdint>

// Truncation toward zero; a value that no int holds, NaN included, becomes 0.
inline int Truncate(float value)
{
    return value >= -2147483648.0f && value < 2147483648.0f ? static_cast<int>(value) : 0;
}

inline int Truncate(double value)
{
    return value > -2147483649.0 && value < 2147483648.0 ? static_cast<int>(value) : 0;
}

// What a pixel keeps of an integer: its low 16 bits.
inline uint16_t Low16(int value)
{
    return static_cast<uint16_t>(value & 0xFFFF);
}
