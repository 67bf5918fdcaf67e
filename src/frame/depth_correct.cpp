// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Host-side depth corrections, range clip and edge removal in plain C++: the reference.
#include "frame/depth_correct.h"

#include <algorithm>

#include "device/base/integers.h"

static int offsetOf(const int* offsets, int x, int y)
{
    return offsets[kFppnBlocksPerRow * (y / kFppnBlock) + x / kFppnBlock];
}

// The factor applies in double precision, and the product comes before the sum. Without factors the sum wraps around as
// a 16-bit number.
static uint16_t correct(uint16_t depth, int x, int y, const DepthCorrection& c)
{
    if (c.factors == nullptr)
        return static_cast<uint16_t>(depth + static_cast<unsigned>(offsetOf(c.offsets, x, y)));
    double value = depth * c.factors[VQD_WIDTH * y + x];
    if (c.offsets != nullptr)
        value += offsetOf(c.offsets, x, y);
    return Low16(Truncate(value));
}

void scalar::CorrectDepth(uint16_t* depth, const DepthCorrection& correction)
{
    const bool corrects = correction.offsets != nullptr || correction.factors != nullptr;
    for (int y = 0; y < VQD_HEIGHT; ++y) {
        uint16_t* row = depth + VQD_WIDTH * y;
        for (int x = 0; x < VQD_WIDTH; ++x) {
            if (row[x] == 0)
                continue;
            const uint16_t value = corrects ? correct(row[x], x, y, correction) : row[x];
            row[x] = value < correction.minDepth || value > correction.maxDepth ? uint16_t{0} : value;
        }
    }
}

// A pixel's decision reads it and its right, lower and lower right neighbours. All of them come later in the scan than
// any pixel cleared so far, so the decisions are those on an untouched copy.
void scalar::RemoveEdges(const uint16_t* amplitude, uint16_t* depth, uint16_t leastAmplitude, uint16_t maxSpread,
                         int first)
{
    for (int y = first; y < VQD_HEIGHT - 1; ++y) {
        const uint16_t* lower = depth + VQD_WIDTH * (y + 1);
        uint16_t* row = depth + VQD_WIDTH * y;
        for (int x = 0; x < VQD_WIDTH - 1; ++x) {
            const auto [low, high] = std::minmax({row[x], row[x + 1], lower[x], lower[x + 1]});
            if (amplitude[VQD_WIDTH * y + x] >= leastAmplitude && high - low > maxSpread)
                row[x] = 0;
        }
    }
}
