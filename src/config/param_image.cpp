// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Encodings of the parameter image and its factory content.
#include "config/param_image.h"

#include <cstddef>
#include <cstdio>

static_assert(sizeof(CamParam) == 532 && offsetof(CamParam, nMaxDistance) == 512);
static_assert(offsetof(CamParam, nModFrequency) == 514 && offsetof(CamParam, nIntegrationTime) == 516);
static_assert(offsetof(CamParam, nOffset) == 518 && offsetof(CamParam, nThreshold) == 520);
static_assert(offsetof(CamParam, nMaxDepth) == 524 && offsetof(CamParam, nMinDepth) == 528);

// Bytes that are not 0 in a factory image. Those without a name are the camera's own; the library only carries them.
static const struct {
    int offset;
    uint8_t value;
} kFactory[] = {
    {kCheckThreshold, 10},
    {kOrthogonalSwitch, 2},
    {kSignature, kSignatureValue},
    {kFrequencyCode, 2}, // 20 MHz
    {kIntegrationTime, 9},
    {kFlip, 0xE2}, // no flip
    {12, 0x13},
    {13, 0xFA},
    {14, 0x01},
    {15, 0x08},
    {17, 0x66},
    {18, 0x05},
    {19, 0x60},
    {kMaxDepth, 0x3A}, // 15000 mm
    {kMaxDepth + 1, 0x98},
    {26, 0x01},
    {27, 0x15},
    {28, 0xA0},
    {29, 0x78},
    {30, 0x18},
    {32, 0x10},
    {38, 0x26},
    {39, 0xAC},
};

void FillFactoryImage(uint8_t* image)
{
    for (const auto& byte : kFactory)
        image[byte.offset] = byte.value;
}

uint16_t ReadU16(const uint8_t* image, int offset)
{
    return static_cast<uint16_t>(image[offset] * 256 + image[offset + 1]);
}

void WriteU16(uint8_t* image, int offset, uint16_t value)
{
    image[offset] = static_cast<uint8_t>(value >> 8);
    image[offset + 1] = static_cast<uint8_t>(value & 0xFF);
}

void RenderSerial(const uint8_t* image, char* text15)
{
    const uint8_t* s = image + kSerial;
    snprintf(text15, 2 * kSerialBytes + 1, "%02x%02x%02x%02x%02x%02x%02x", s[0], s[1], s[2], s[3], s[4], s[5], s[6]);
}

static const Frequency kFrequencies[] = {
    {0x00, 10, 15000}, {0x01, 10, 15000}, {0x02, 20, 7500}, {0x03, 30, 5000}, {0x33, 30, 5000},  {0x04, 40, 3750},
    {0x44, 40, 3750},  {0x05, 50, 3000},  {0x55, 50, 3000}, {0x06, 60, 2500}, {0x45, 45, 15000}, {0x56, 56, 15000},
};

const Frequency* DecodeFrequency(uint8_t code)
{
    for (const Frequency& row : kFrequencies)
        if (row.code == code)
            return &row;
    return nullptr;
}

uint8_t FlipCode(bool horizontal, bool vertical)
{
    return static_cast<uint8_t>(0xE0 | (horizontal ? 0 : 2) | (vertical ? 1 : 0));
}

bool IsFlippedHorizontally(uint8_t code)
{
    return (code & 2) == 0;
}

bool IsFlippedVertically(uint8_t code)
{
    return (code & 1) != 0;
}

int DecodeOffset(const uint8_t* image)
{
    return image[kOffsetSign] == 1 ? image[kOffsetMagnitude] : -image[kOffsetMagnitude];
}

void EncodeOffset(uint8_t* image, int offset)
{
    image[kOffsetSign] = offset >= 0;
    image[kOffsetMagnitude] = static_cast<uint8_t>(offset >= 0 ? offset : -offset);
}

uint8_t UndistortionCode(int mode, bool orthogonal)
{
    const int code = IsUndistortionMode(mode) ? mode : 0;
    return static_cast<uint8_t>(code | (orthogonal ? kOrthogonalBit : 0));
}

uint8_t CorrectionCode(bool fppn, bool edge)
{
    return static_cast<uint8_t>((fppn ? kFppnBit : 0) | (edge ? kEdgeBit : 0));
}
