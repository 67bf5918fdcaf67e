// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The EEPROM of a camera as it leaves calibration.
#include "camera.h"

#include <algorithm>
#include <cstdlib>

#include "registers.h"

namespace sim
{

struct ByteRow {
    size_t at;
    uint8_t value;
};

static constexpr ByteRow kSettings[] = {
    {kCheckThreshold, 10},
    {kOrthogonalSwitch, 2}, // off
    {kSignature, 0x81},
    {kIntegrationTime, 9},
    {kFlipCode, 0xE2}, // none
    // Sensor timing, of which the host knows nothing.
    {12, 0x13},
    {13, 0xFA},
    {14, 0x01},
    {15, 0x08},
    {17, 0x66},
    {18, 0x05},
    {19, 0x60},
    {26, 0x01},
    {27, 0x15},
    {28, 0xA0},
    {29, 0x78},
    {30, 0x18},
    {32, 0x10},
    {38, 0x26},
    {39, 0xAC},
};

// Two bytes, high byte first: a magnitude of 15 bits under a sign bit.
struct PairRow {
    size_t at;
    int value;
};

// What is not here is 0, or lies behind the EEPROM.
static constexpr PairRow kPairs[] = {
    {kMaxDepth, 15000},        // mm
    {kDepthGap, 300},          // mm
    {kDepthLens + kFx, 2040},  // 204.0 pixels
    {kDepthLens + kFy, 2040},  // 204.0
    {kDepthLens + kK1, -346},  // -0.346
    {kDepthLens + kK2, 120},   // 0.120
    {kDepthLens + kCx, 1600},  // 160.0
    {kDepthLens + kCy, 1200},  // 120.0
    {kColourLens + kFx, 2513}, // 251.3
    {kColourLens + kFy, 2511}, // 251.1
    {kColourLens + kK1, 81},   // 0.081
    {kColourLens + kK2, -164}, // -0.164
    {kColourLens + kCx, 1587}, // 158.7
    {kColourLens + kCy, 1214}, // 121.4
    {kColourLens + kP1, 2},    // 0.002
    {kColourLens + kP2, -1},   // -0.001
    {kRotation, 9999},         // 0.9999; r11
    {kRotation + 2, -87},      // -0.0087; r12
    {kRotation + 4, 105},      // 0.0105; r13
    {kRotation + 6, 88},       // 0.0088; r21
};

Eeprom factoryEeprom(const Config& config)
{
    Eeprom bytes{};
    for (const ByteRow& row : kSettings)
        bytes[row.at] = row.value;
    for (const PairRow& row : kPairs) {
        const int magnitude = std::abs(row.value);
        bytes[row.at] = static_cast<uint8_t>(magnitude >> 8 | (row.value < 0 ? 0x80 : 0));
        bytes[row.at + 1] = static_cast<uint8_t>(magnitude & 0xFF);
    }
    const bool longRange = config.product.find("VQD-RS") != std::string::npos;
    bytes[kFrequencyCode] = longRange ? k10MHz : k20MHz;
    std::ranges::copy(config.serial, bytes.begin() + kSerialNumber);
    return bytes;
}

} // namespace sim
