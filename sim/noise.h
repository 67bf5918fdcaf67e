// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Noise that is the same on every machine: random bits are a function of what they are for.
#pragma once

#include <cstdint>

namespace sim
{

// Spreads a key over 64 bits (the finaliser of SplitMix64).
inline uint64_t scramble(uint64_t key)
{
    key += 0x9E3779B97F4A7C15;
    key = (key ^ (key >> 30)) * 0xBF58476D1CE4E5B9;
    key = (key ^ (key >> 27)) * 0x94D049BB133111EB;
    return key ^ (key >> 31);
}

// Nearly normal, mean 0, deviation 1, never beyond 3.5: the sum of the four 16-bit numbers in `bits`.
inline float bell(uint64_t bits)
{
    const auto sum = static_cast<int>((bits & 0xFFFF) + (bits >> 16 & 0xFFFF) + (bits >> 32 & 0xFFFF) + (bits >> 48));
    return static_cast<float>(sum - 2 * 0xFFFF) * (1.0f / 37837.2f);
}

} // namespace sim
