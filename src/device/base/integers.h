// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Conversions to integers that are defined for every value. They truncate toward zero.
#pragma once

#include <cstdint>

// Whether an int holds the truncated value. It holds no NaN.
inline bool FitsInt(float value)
{
    return value >= -2147483648.0f && value < 2147483648.0f;
}

inline bool FitsInt(double value)
{
    return value > -2147483649.0 && value < 2147483648.0;
}

// A value that no int holds becomes 0.
inline int Truncate(float value)
{
    return FitsInt(value) ? static_cast<int>(value) : 0;
}

inline int Truncate(double value)
{
    return FitsInt(value) ? static_cast<int>(value) : 0;
}

// What a pixel keeps of an integer: its low 16 bits.
inline uint16_t Low16(int value)
{
    return static_cast<uint16_t>(value & 0xFFFF);
}
