// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The bytes of a parameter image that the camera acts on or leaves the factory with, and the models that act.
#pragma once

#include <string>

#include "wire.h"

namespace sim
{

// Pairs of bytes, high byte first, are named by their first one.
enum Register : size_t {
    kCheckThreshold = 1,
    kOrthogonalSwitch = 2,
    kSignature = 4, // 0x81 in every valid image
    kFrequencyCode = 5,
    kIntegrationTime = 6, // in hundreds; 9 is nominal
    kFlipCode = 9,        // bit 1 clear: columns reversed; bit 0 set: rows reversed
    kEnable = 11,         // capture and illumination: only 1 is on
    kMinDepth = 20,       // pair
    kMaxDepth = 22,       // pair
    kFrameDelay = 33,
    kEdgeAmplitude = 43, // 255: edge removal off
    kEdgeDepth = 44,
    kSerialNumber = 57, // 7 bytes
    kDepthGap = 64,     // pair
    kDepthLens = 80,    // pairs from kFx to kP2
    kColourLens = 100,  // likewise
    kRotation = 120,    // pairs; the matrix goes on behind the EEPROM
};

// Where the pairs of a lens stand behind its first byte.
inline constexpr size_t kFx = 0, kFy = 2, kK1 = 4, kK2 = 6, kCx = 10, kCy = 12, kP1 = 14, kP2 = 16;

// What the light is modulated with; a code of two digits pairs two frequencies.
enum FrequencyCode : uint8_t {
    k10MHz = 0x01,
    k20MHz = 0x02,
    k30MHz = 0x03,
    k40MHz = 0x04,
    k50MHz = 0x05,
    k60MHz = 0x06,
    k30And30MHz = 0x33,
    k40And40MHz = 0x44,
    k50And50MHz = 0x55,
};

inline constexpr uint8_t kMaxFrameDelay = 100;

inline uint16_t bigEndian(const Image& image, size_t at)
{
    return static_cast<uint16_t>(image[at] << 8 | image[at + 1]);
}

// These models leave range clip and edge removal to the host; all others do it themselves.
inline bool hostCorrects(const std::string& product)
{
    return product.find("VQD-HT120") != std::string::npos || product.find("VQD-HT950X") != std::string::npos;
}

} // namespace sim
