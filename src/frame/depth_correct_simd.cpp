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
    constexpr hn::CappedTag<T, kFppnBlock> block;
    for (int i = 0; i < kFppnBlocksPerRow; ++i)
        for (size_t j = 0; j < kFppnBlock; j += hn::MaxLanes(block))
            hn::StoreU(hn::Set(block, static_cast<T>(offsets == nullptr ? 0 : offsets[i])), block,
                       row + kFppnBlock * i + j);
}

// Depths from `least` to `least + span` pass.
struct Range {
    uint16_t least, span;
};

Range rangeOf(const DepthCorrection& c)
{
    const int least = std::max(c.minDepth, 0), most = std::min(c.maxDepth, 65535);
    return {static_cast<uint16_t>(least), static_cast<uint16_t>(most - least)};
}

// Pixels that were invalid stay so.
Pixel clip(Pixel depth, Pixel corrected, Range range)
{
    const Pixel above = hn::Sub(corrected, hn::Set(kPixels, range.least)); // wraps around for what is below
    const auto inRange = hn::Eq(hn::Min(above, hn::Set(kPixels, range.span)), above);
    return hn::IfThenElseZero(hn::And(inRange, hn::Ne(depth, hn::Zero(kPixels))), corrected);
}

constexpr hn::CappedTag<double, 8> kDoubles;
constexpr hn::Rebind<int32_t, decltype(kDoubles)> kInts;
constexpr hn::Rebind<uint16_t, decltype(kDoubles)> kFewPixels;
constexpr hn::Rebind<uint32_t, decltype(kDoubles)> kWords;
constexpr hn::Rebind<uint64_t, decltype(kDoubles)> kLongs;
constexpr hn::Twice<decltype(kInts)> kManyInts;
using Double = hn::Vec<decltype(kDoubles)>;
using Int = hn::Vec<decltype(kInts)>;
static_assert(kLanes == 4 * hn::MaxLanes(kDoubles));

// The truncated value as an int, with 0 in the low 16 bits for what is outside int and for no number. On x86 the
// instruction gives just that, which Highway's conversion hides behind a limit of its own.
Int truncate(Double value)
{
#if HWY_TARGET <= HWY_AVX3 && HWY_ARCH_X86
    return Int{_mm512_cvttpd_epi32(value.raw)};
#elif HWY_TARGET == HWY_AVX2
    return Int{_mm256_cvttpd_epi32(value.raw)};
#elif HWY_ARCH_X86
    return Int{_mm_cvttpd_epi32(value.raw)};
#else
    const auto fits = hn::Lt(hn::Abs(value), hn::Set(kDoubles, 2147483648.0));
    return hn::DemoteTo(kInts, hn::IfThenElseZero(fits, value));
#endif
}

// Wide vectors are converted faster by way of 2^52, whose last bit counts 1, so that a small number fits in below.
Double toDouble(const uint16_t* pixels)
{
    const auto few = hn::LoadU(kFewPixels, pixels);
    if constexpr (hn::MaxLanes(kDoubles) < 4)
        return hn::PromoteTo(kDoubles, hn::PromoteTo(kInts, few));
    const Double big = hn::Set(kDoubles, 4503599627370496.0);
    return hn::Sub(hn::Or(hn::BitCast(kDoubles, hn::PromoteTo(kLongs, hn::PromoteTo(kWords, few))), big), big);
}

// The product before the sum. A vector of doubles has a quarter of a vector's pixels.
Pixel multiplyAndAdd(const uint16_t* depth, const double* factors, const double* offsets)
{
    constexpr int kQuarter = hn::MaxLanes(kDoubles);
    const auto quarter = [&](int i) {
        const Double d = toDouble(depth + i);
        return truncate(hn::Add(hn::Mul(d, hn::LoadU(kDoubles, factors + i)), hn::LoadU(kDoubles, offsets + i)));
    };
    const auto lower = hn::Combine(kManyInts, quarter(kQuarter), quarter(0));
    const auto upper = hn::Combine(kManyInts, quarter(3 * kQuarter), quarter(2 * kQuarter));
    return hn::ConcatEven(kPixels, hn::BitCast(kPixels, upper), hn::BitCast(kPixels, lower));
}

void CorrectDepth(uint16_t* depth, const DepthCorrection& c)
{
    if (c.minDepth > 65535 || c.maxDepth < 0 || c.minDepth > c.maxDepth) { // nothing passes
        std::fill_n(depth, VQD_PIXELS, uint16_t{0});
        return;
    }
    const Range range = rangeOf(c);
    alignas(64) uint16_t offsets[VQD_WIDTH];
    alignas(64) double wideOffsets[VQD_WIDTH];
    for (int y = 0; y < VQD_HEIGHT; ++y) {
        uint16_t* row = depth + VQD_WIDTH * y;
        const int* blocks = c.offsets == nullptr ? nullptr : c.offsets + kFppnBlocksPerRow * (y / kFppnBlock);
        if (y % kFppnBlock == 0) {
            if (c.factors != nullptr)
                spreadOffsets(blocks, wideOffsets);
            else
                spreadOffsets(blocks, offsets);
        }
        const double* factors = c.factors == nullptr ? nullptr : c.factors + VQD_WIDTH * y;
        for (int x = 0; x < VQD_WIDTH; x += kLanes) {
            const Pixel d = hn::LoadU(kPixels, row + x);
            const Pixel corrected = factors != nullptr ? multiplyAndAdd(row + x, factors + x, wideOffsets + x)
                                                       : hn::Add(d, hn::LoadU(kPixels, offsets + x));
            hn::StoreU(clip(d, corrected, range), kPixels, row + x);
        }
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
