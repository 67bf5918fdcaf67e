// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The bytes of a parameter image that the camera itself acts on, and the models that act.
#pragma once

#include <cstdint>
#include <string>

#include "camera.h"

namespace sim
{

enum Register : size_t {
    kFrequencyCode = 5,
    kIntegrationTime = 6, // in hundreds; 9 is nominal
    kFlipCode = 9,        // bit 1 clear: columns reversed; bit 0 set: rows reversed
    kEnable = 11,         // capture and illumination: only 1 is on
    kMinDepth = 20,       // 20 and 21, high byte first
    kMaxDepth = 22,
    kFrameDelay = 33,
    kEdgeAmplitude = 43, // 255: edge removal off
    kEdgeDepth = 44,
};

inline constexpr uint8_t kMaxFrameDelay = 100;

// The tables that a host corrects with, by wValue.
inline constexpr uint16_t kFppnRegion = 0x4000, kOrthogonalRegion = 0x7000;

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
