// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Fixed-point encoding of the lens and extrinsic values. Single precision: -0.346f * 1000 is 346; in double it would
// be 345.
#include "geometry/lens_fields.h"

static constexpr float kMaxUnsigned = 65535.0f;
static constexpr float kMaxMagnitude = 32767.0f;
static constexpr uint16_t kSignBit = 0x8000;

// NaN compares false with everything and ends as 0.
static int saturate(float scaled, float least, float most)
{
    if (scaled >= most)
        return static_cast<int>(most);
    if (scaled <= least)
        return static_cast<int>(least);
    return scaled == scaled ? static_cast<int>(scaled) : 0;
}

void EncodeLensField(uint8_t* image, const LensField& field, float value)
{
    float scaled = value * field.scale;
    if (field.encoding == LensEncoding::kUnsigned) {
        WriteU16(image, field.offset, static_cast<uint16_t>(saturate(scaled, 0.0f, kMaxUnsigned)));
        return;
    }
    if (field.encoding == LensEncoding::kSignedRounded)
        scaled = value > 0 ? scaled + 0.5f : scaled - 0.5f;
    const int number = saturate(scaled, -kMaxMagnitude, kMaxMagnitude);
    const uint16_t magnitude = static_cast<uint16_t>(number < 0 ? -number : number);
    WriteU16(image, field.offset, number < 0 ? magnitude | kSignBit : magnitude);
}

float DecodeLensField(const uint8_t* image, const LensField& field)
{
    const uint16_t stored = ReadU16(image, field.offset);
    if (field.encoding == LensEncoding::kUnsigned)
        return static_cast<float>(stored) / field.scale;
    const float magnitude = static_cast<float>(stored & ~kSignBit);
    return magnitude / ((stored & kSignBit) ? -field.scale : field.scale);
}
