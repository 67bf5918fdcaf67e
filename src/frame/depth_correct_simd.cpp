// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Depth correction, clip and edge removal in vectors, bit for bit what the reference does.
#include "frame/depth_correct.h"

#include <algorithm>

#include "VQD_API.h"

#include "simd/targets.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "frame/depth_correct_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace simd::HWY_NAMESPACE
{

#if VQD_HAS_VECTORS

namespace hn = hwy::HWY_NAMESPACE;

constexpr hn::CappedTag<uint16_t, 32> kPixels;
constexpr int kLanes = hn::MaxLanes(kPixels);
using Pixel = hn::Vec<decltype(kPixels)>;
static_assert(VQD_WIDTH % kLanes == 0);

// Gives each pixel of a row the offset of its block, or 0 without a table.
template <typename T> void spreadOffsets(const int* offsets, T (&row)[VQD_WIDTH])
{
    for (int x = 0; x < VQD_WIDTH; ++x)
        row[x] = static_cast<T>(offsets == nullptr ? 0 : offsets[x / kFppnBlock]);
}

// Without factors the sum wraps around in 16 bits.
void addOffsets(const uint16_t* depth, const uint16_t* offsets, uint16_t* corrected)
{
    for (int x = 0; x < VQD_WIDTH; x += kLanes)
        hn::StoreU(hn::Add(hn::LoadU(kPixels, depth + x), hn::LoadU(kPixels, offsets + x)), kPixels, corrected + x);
}

// The product before the sum. Values outside int become 0, as does INT_MIN, whose low 16 bits are 0.
void multiply(const uint16_t* depth, const double* factors, const double* offsets, uint16_t* corrected)
{
    constexpr hn::CappedTag<double, 8> doubles;
    constexpr hn::Rebind<int32_t, decltype(doubles)> ints;
    constexpr hn::Rebind<uint32_t, decltype(doubles)> words;
    constexpr hn::Rebind<uint16_t, decltype(doubles)> pixels;
    for (int x = 0; x < VQD_WIDTH; x += hn::MaxLanes(doubles)) {
        const auto d = hn::PromoteTo(doubles, hn::PromoteTo(ints, hn::LoadU(pixels, depth + x)));
        const auto value = hn::Add(hn::Mul(d, hn::LoadU(doubles, factors + x)), hn::LoadU(doubles, offsets + x));
        const auto fits = hn::Lt(hn::Abs(value), hn::Set(doubles, 2147483648.0));
        const auto truncated = hn::DemoteTo(ints, hn::IfThenElseZero(fits, value));
        hn::StoreU(hn::TruncateTo(pixels, hn::BitCast(words, truncated)), pixels, corrected + x);
    }
}

struct Range {
    uint16_t least, most;
};

Range rangeOf(const DepthCorrection& c)
{
    if (c.minDepth > 65535 || c.maxDepth < 0)
        return {65535, 0}; // nothing passes
    return {static_cast<uint16_t>(std::max(c.minDepth, 0)), static_cast<uint16_t>(std::min(c.maxDepth, 65535))};
}

// Pixels that were invalid stay so.
void clip(const uint16_t* corrected, Range range, uint16_t* depth)
{
    const Pixel least = hn::Set(kPixels, range.least);
    const Pixel most = hn::Set(kPixels, range.most);
    for (int x = 0; x < VQD_WIDTH; x += kLanes) {
        const Pixel value = hn::LoadU(kPixels, corrected + x);
        const auto inRange = hn::And(hn::Eq(hn::Max(value, least), value), hn::Eq(hn::Min(value, most), value));
        const auto valid = hn::Ne(hn::LoadU(kPixels, depth + x), hn::Zero(kPixels));
        hn::StoreU(hn::IfThenElseZero(hn::And(inRange, valid), value), kPixels, depth + x);
    }
}

void CorrectDepth(uint16_t* depth, const DepthCorrection& c)
{
    const Range range = rangeOf(c);
    uint16_t offsets[VQD_WIDTH];
    double wideOffsets[VQD_WIDTH];
    uint16_t corrected[VQD_WIDTH];
    for (int y = 0; y < VQD_HEIGHT; ++y) {
        uint16_t* row = depth + VQD_WIDTH * y;
        const int* blocks = c.offsets == nullptr ? nullptr : c.offsets + kFppnBlocksPerRow * (y / kFppnBlock);
        if (y % kFppnBlock == 0) {
            if (c.factors != nullptr)
                spreadOffsets(blocks, wideOffsets);
            else
                spreadOffsets(blocks, offsets);
        }
        if (c.factors != nullptr)
            multiply(row, c.factors + VQD_WIDTH * y, wideOffsets, corrected);
        else
            addOffsets(row, offsets, corrected);
        clip(corrected, range, row);
    }
}

// Safe in place: a vector reads only its own pixels and later ones. The last column's right neighbours would be the
// next row's, so it is not judged; for the last row to be judged they would lie beyond the image, so the reference does
// it.
void RemoveEdges(const uint16_t* amplitude, uint16_t* depth, uint16_t leastAmplitude, uint16_t maxSpread)
{
    const Pixel least = hn::Set(kPixels, leastAmplitude);
    const Pixel most = hn::Set(kPixels, maxSpread);
    const auto all = hn::FirstN(kPixels, kLanes);
    const auto allButLast = hn::FirstN(kPixels, kLanes - 1);
    for (int i = 0; i < VQD_WIDTH * (VQD_HEIGHT - 2); i += kLanes) {
        const Pixel d0 = hn::LoadU(kPixels, depth + i);
        const Pixel d1 = hn::LoadU(kPixels, depth + i + 1);
        const Pixel d2 = hn::LoadU(kPixels, depth + i + VQD_WIDTH);
        const Pixel d3 = hn::LoadU(kPixels, depth + i + VQD_WIDTH + 1);
        const Pixel high = hn::Max(hn::Max(d0, d1), hn::Max(d2, d3));
        const Pixel low = hn::Min(hn::Min(d0, d1), hn::Min(d2, d3));
        const Pixel excess = hn::SaturatedSub(hn::Sub(high, low), most);
        const Pixel a = hn::LoadU(kPixels, amplitude + i);
        const auto edge = hn::And(hn::Eq(hn::Max(a, least), a), hn::Ne(excess, hn::Zero(kPixels)));
        const auto judged = (i + kLanes) % VQD_WIDTH == 0 ? allButLast : all;
        hn::StoreU(hn::IfThenZeroElse(hn::And(edge, judged), d0), kPixels, depth + i);
    }
    scalar::RemoveEdges(amplitude, depth, leastAmplitude, maxSpread, VQD_HEIGHT - 2);
}

#else

using scalar::CorrectDepth;

void RemoveEdges(const uint16_t* amplitude, uint16_t* depth, uint16_t leastAmplitude, uint16_t maxSpread)
{
    scalar::RemoveEdges(amplitude, depth, leastAmplitude, maxSpread);
}

#endif

} // namespace simd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace simd
{

HWY_EXPORT(CorrectDepth);
HWY_EXPORT(RemoveEdges);

void CorrectDepth(uint16_t* depth, const DepthCorrection& correction)
{
    HWY_DYNAMIC_DISPATCH(CorrectDepth)(depth, correction);
}

void RemoveEdges(const uint16_t* amplitude, uint16_t* depth, uint16_t leastAmplitude, uint16_t maxSpread)
{
    HWY_DYNAMIC_DISPATCH(RemoveEdges)(amplitude, depth, leastAmplitude, maxSpread);
}

} // namespace simd

#endif
