// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The EEPROM of a camera as it leaves calibration.
#include "camera.h"

#include <algorithm>
#include <cstdlib>

namespace sim
{

struct ByteRow {
    uint8_t at, value;
};

static constexpr ByteRow kSettings[] = {
    {1, 10},   // check threshold
    {2, 2},    // orthogonal correction off
    {4, 0x81}, // signature of a valid image
    {6, 9},    // integration time 900
    {9, 0xE2}, // no flip
    {22, 0x3A},
    {23, 0x98}, // depth range 0 to 15000
    {64, 0x01},
    {65, 0x2C}, // depth gap 300
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

// Two bytes, high byte first: a magnitude of 15 bits under a sign bit. Focal lengths and centres are positive
// and never reach it.
struct LensRow {
    uint8_t at;
    int16_t value;
};

static constexpr LensRow kLens[] = {
    // Depth lens: pixels in tenths, k in thousandths; k3, p1, p2 and skew are 0.
    {80, 2040}, // fx 204.0
    {82, 2040}, // fy
    {84, -346}, // k1
    {86, 120},  // k2
    {90, 1600}, // cx 160.0
    {92, 1200}, // cy
    // Colour lens: likewise, p in thousandths.
    {100, 2513}, // fx 251.3
    {102, 2511}, // fy
    {104, 81},   // k1
    {106, -164}, // k2
    {110, 1587}, // cx
    {112, 1214}, // cy
    {114, 2},    // p1
    {116, -1},   // p2
    // Rotation to the colour camera in ten-thousandths; the other elements lie behind the EEPROM.
    {120, 9999}, // r11
    {122, -87},  // r12
    {124, 105},  // r13
    {126, 88},   // r21
};

Eeprom factoryEeprom(const Config& config)
{
    constexpr size_t kFrequencyCode = 5, kSerial = 57;
    constexpr uint8_t k10MHz = 1, k20MHz = 2;
    Eeprom bytes{};
    for (const ByteRow& row : kSettings)
        bytes[row.at] = row.value;
    const bool longRange = config.product.find("VQD-RS") != std::string::npos;
    bytes[kFrequencyCode] = longRange ? k10MHz : k20MHz;
    std::ranges::copy(config.serial, bytes.begin() + kSerial);
    for (const LensRow& row : kLens) {
        const int magnitude = std::abs(row.value);
        bytes[row.at] = static_cast<uint8_t>(magnitude >> 8 | (row.value < 0 ? 0x80 : 0));
        bytes[row.at + 1u] = static_cast<uint8_t>(magnitude & 0xFF);
    }
    return bytes;
}

} // namespace sim
