// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Tables and raw errors from the same two functions, so that one undoes the other.
#include "factory_tables.h"

#include <algorithm>
#include <cmath>

#include "wire.h"

namespace sim
{

static constexpr int kBlock = 4; // pixels a side
static constexpr int kBlockColumns = kColumns / kBlock, kBlockRows = kRows / kBlock;

static void append(std::vector<uint8_t>& bytes, long value)
{
    bytes.push_back(static_cast<uint8_t>(value >> 8));
    bytes.push_back(static_cast<uint8_t>(value & 0xFF));
}

// 0 to 1 and back with each whole number, smooth at both ends.
static double wave(double phase)
{
    const double way = 1 - std::fabs(2 * (phase - std::floor(phase)) - 1);
    return way * way * (3 - 2 * way);
}

static long blockOffset(int column, int row)
{
    constexpr double kHalf = 20, kShift = 0.25;
    return std::lround(kHalf * wave(static_cast<double>(column) / kBlockColumns) +
                       kHalf * wave(static_cast<double>(row) / kBlockRows + kShift));
}

std::vector<uint8_t> orthogonalTable()
{
    constexpr int kFactors = 2048, kFactorsPerPixel = 8;
    constexpr double kOne = 10000;
    std::vector<uint8_t> bytes;
    for (int i = 0; i < kFactors; i++) {
        const double tangent = static_cast<double>(i) / kFactorsPerPixel / Optics{}.fx;
        append(bytes, std::lround(kOne / std::sqrt(1 + tangent * tangent)));
    }
    return bytes;
}

std::vector<uint8_t> fppnTable()
{
    std::vector<uint8_t> bytes;
    for (int row = 0; row < kBlockRows; row++)
        for (int column = 0; column < kBlockColumns; column++)
            append(bytes, blockOffset(column, row));
    return bytes;
}

// The block, of so many, that an undistorted pixel lies in or nearest to.
static int blockAt(double pixel, int blocks)
{
    return static_cast<int>(std::clamp(pixel / kBlock, 0.0, blocks - 1.0));
}

std::vector<RawError> rawErrors(const Optics& lens)
{
    std::vector<RawError> errors;
    errors.reserve(kPixels);
    for (const Ray& ray : rawRays(lens)) {
        if (std::isnan(ray.x)) { // sees nothing
            errors.emplace_back();
            continue;
        }
        const int column = blockAt(lens.fx * static_cast<double>(ray.x) + lens.cx + 0.5, kBlockColumns);
        const int row = blockAt(lens.fy * static_cast<double>(ray.y) + lens.cy + 0.5, kBlockRows);
        errors.push_back({static_cast<float>(blockOffset(column, row)), std::sqrt(1 + ray.x * ray.x + ray.y * ray.y)});
    }
    return errors;
}

} // namespace sim
