// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Register effects, in the order in which the light meets them: sensor, arithmetic, read-out.
#include "frame_effects.h"

#include <algorithm>

#include "noise.h"
#include "registers.h"

namespace sim
{

// The distance in millimetres at which the phase starts anew.
static uint16_t unambiguousRange(uint8_t frequencyCode)
{
    switch (frequencyCode) {
    case k20MHz:
        return 7500;
    case k30MHz:
    case k30And30MHz:
        return 5000;
    case k40MHz:
    case k40And40MHz:
        return 3750;
    case k50MHz:
    case k50And50MHz:
        return 3000;
    case k60MHz:
        return 2500;
    default: // 10 MHz, and two different frequencies, which tell as far together
        return 15000;
    }
}

static void wrapDepth(uint16_t range, std::span<uint16_t> depth)
{
    for (uint16_t& value : depth)
        if (value >= range)
            value = static_cast<uint16_t>(value % range);
}

// A sensor that is given no integration time keeps to its nominal one.
static void scaleAmplitude(uint8_t integrationTime, std::span<uint16_t> amplitude)
{
    constexpr uint32_t kNominal = 9;
    if (integrationTime == 0 || integrationTime == kNominal)
        return;
    for (uint16_t& value : amplitude)
        value = static_cast<uint16_t>(std::min<uint32_t>(uint32_t{value} * integrationTime / kNominal, UINT16_MAX));
}

static void clipDepth(uint16_t least, uint16_t most, std::span<uint16_t> depth)
{
    for (uint16_t& value : depth)
        if (value < least || value > most)
            value = 0;
}

// Drops a bright enough pixel whose depth differs too much from that of its right, lower and lower right
// neighbours. In place: a pixel only looks at neighbours that the scan has not reached yet.
static void removeEdges(uint8_t threshold, uint8_t spread, const FramePlanes& planes)
{
    constexpr uint8_t kOff = 255, kUsualSpread = 100;
    if (threshold == kOff)
        return;
    const int most = spread == 0 ? kUsualSpread : spread;
    for (size_t row = 0; row + 1 < kRows; row++)
        for (size_t column = 0; column + 1 < kColumns; column++) {
            const size_t i = row * kColumns + column;
            const auto& d = planes.depth;
            const auto [low, high] = std::minmax({d[i], d[i + 1], d[i + kColumns], d[i + kColumns + 1]});
            if (planes.amplitude[i] > threshold && high - low > most)
                d[i] = 0;
        }
}

static void flip(uint8_t code, std::span<uint16_t> plane)
{
    const bool columns = (code & 2) == 0, rows = (code & 1) != 0;
    if (columns)
        for (size_t row = 0; row < kRows; row++)
            std::ranges::reverse(plane.subspan(row * kColumns, kColumns));
    if (rows)
        for (size_t row = 0; row < kRows / 2; row++)
            std::ranges::swap_ranges(plane.subspan(row * kColumns, kColumns),
                                     plane.subspan((kRows - 1 - row) * kColumns, kColumns));
}

void applyRegisters(const Image& registers, bool correctsInCamera, const FramePlanes& planes)
{
    wrapDepth(unambiguousRange(registers[kFrequencyCode]), planes.depth);
    scaleAmplitude(registers[kIntegrationTime], planes.amplitude);
    if (correctsInCamera) {
        clipDepth(bigEndian(registers, kMinDepth), bigEndian(registers, kMaxDepth), planes.depth);
        removeEdges(registers[kEdgeAmplitude], registers[kEdgeDepth], planes);
    }
    flip(registers[kFlipCode], planes.amplitude);
    flip(registers[kFlipCode], planes.depth);
}

void darken(uint64_t index, const FramePlanes& planes)
{
    const uint64_t key = scramble(index);
    for (size_t i = 0; i < kPixels; i++)
        planes.amplitude[i] = static_cast<uint16_t>(scramble(key + i) & 3);
    std::ranges::fill(planes.depth, uint16_t{0});
}

} // namespace sim
