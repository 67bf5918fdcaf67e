// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Fixed-point encoding of the lens and extrinsic values in the parameter image, one row for each field.
#pragma once

#include <cstdint>

#include "config/param_image.h"

enum class LensEncoding : uint8_t {
    kUnsigned,      // 16 bits, truncated
    kSigned,        // sign bit and 15 bits of magnitude, truncated
    kSignedRounded, // the same, rounded half away from zero
};

struct LensField {
    int offset; // of the big-endian pair
    LensEncoding encoding;
    float scale; // stored integer = value * scale
};

inline constexpr int kIntrinsicFields = 4;
inline constexpr int kDistortionFields = 6;
inline constexpr int kExtrinsicFields = 12;

// Both lenses: fx, fy, cx, cy and k1, k2, k3, p1, p2, skew.
struct LensBlock {
    LensField intrinsic[kIntrinsicFields];
    LensField distortion[kDistortionFields];
};

// A lens block stores its ten pairs as fx, fy, k1, k2, k3, cx, cy, p1, p2, skew.
constexpr LensBlock MakeLensBlock(int at, float tangentialScale)
{
    using enum LensEncoding;
    return {{{at, kUnsigned, 10}, {at + 2, kUnsigned, 10}, {at + 10, kUnsigned, 10}, {at + 12, kUnsigned, 10}},
            {{at + 4, kSigned, 1000},
             {at + 6, kSigned, 1000},
             {at + 8, kSigned, 1000},
             {at + 14, kSigned, tangentialScale},
             {at + 16, kSigned, tangentialScale},
             {at + 18, kSigned, 1000}}};
}

inline constexpr LensBlock kDepthLensBlock = MakeLensBlock(kDepthLens, 100);
inline constexpr LensBlock kColourLensBlock = MakeLensBlock(kColourLens, 1000);

// r11 to r33 row by row, then tx, ty, tz.
constexpr LensField ExtrinsicField(int i)
{
    return {kExtrinsic + 2 * i, LensEncoding::kSignedRounded, 10000};
}

// A value that the field cannot hold is stored as the nearest one that it can, NaN as 0.
void EncodeLensField(uint8_t* image, const LensField& field, float value);

float DecodeLensField(const uint8_t* image, const LensField& field);
