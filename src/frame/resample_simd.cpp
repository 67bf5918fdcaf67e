// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Resampling in vectors, bit for bit what the reference does.
//
// The planes are first merged into one, so that a 64-bit load brings amplitude and depth of two neighbours. Plain loads
// do that: the gather instructions of many processors are slower. A load through a just written index or sample waits
// for the store to leave the core, so the three steps of a pixel run in step, each a block behind the one before.
#include "frame/resample.h"

#include <cstring>

#include "simd/targets.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "frame/resample_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace simd::HWY_NAMESPACE
{

#if VQD_HAS_VECTORS

namespace hn = hwy::HWY_NAMESPACE;

using Floats = hn::CappedTag<float, 16>;
using Ints = hn::RebindToSigned<Floats>;
using Words = hn::RebindToUnsigned<Floats>;
using Longs = hn::Repartition<uint64_t, Words>;
using Pixels = hn::Rebind<uint16_t, Floats>;
using Float = hn::Vec<Floats>;
using Word = hn::Vec<Words>;

constexpr Floats kFloats;
constexpr Ints kInts;
constexpr Words kWords;
constexpr Longs kLongs;
constexpr Pixels kPixels;

constexpr int kLanes = hn::MaxLanes(kFloats);
constexpr float kWidth = VQD_WIDTH;
constexpr float kHeight = VQD_HEIGHT;
constexpr int kBlock = 128; // pixels
constexpr int kBlocks = VQD_PIXELS / kBlock;
static_assert(VQD_PIXELS % kBlock == 0 && kBlock % kLanes == 0 && kLanes % 4 == 0);

// Adding 2^23 to an integer below that leaves it in the mantissa.
constexpr float kInteger = 8388608.0f;
constexpr uint32_t kIntegerBits = 0x4B000000;
// The same for integers of either sign below 2^22.
constexpr float kSignedInteger = 12582912.0f;

void mergeRow(const uint16_t* amplitude, const uint16_t* depth, uint32_t* row)
{
    constexpr hn::CappedTag<uint16_t, 32> d;
    static_assert(VQD_WIDTH % hn::MaxLanes(d) == 0);
    for (int x = 0; x < VQD_WIDTH; x += hn::MaxLanes(d))
        hn::StoreInterleaved2(hn::LoadU(d, amplitude + x), hn::LoadU(d, depth + x), d,
                              reinterpret_cast<uint16_t*>(row + 1 + x));
    row[0] = row[1];
    row[VQD_WIDTH + 1] = row[VQD_WIDTH];
}

void mergePlanes(Planes raw, uint32_t* pairs)
{
    for (int y = 0; y < VQD_HEIGHT; ++y)
        mergeRow(raw.amplitude + VQD_WIDTH * y, raw.depth + VQD_WIDTH * y, pairs + kPairsStride * (y + 1));
    constexpr size_t kRow = kPairsStride * sizeof *pairs;
    uint32_t* bottom = pairs + kPairsOutside - kPairsStride;
    memcpy(pairs, pairs + kPairsStride, kRow);
    memcpy(bottom, bottom - kPairsStride, kRow);
    memset(pairs + kPairsOutside, 0, 2 * kRow);
}

// The entry at `column`, `row` of the merged plane, whole numbers; the zeros where not `inside`.
HWY_INLINE void storeIndexes(Float column, Float row, hn::Mask<Floats> inside, uint32_t* indexes)
{
    const Float index =
        hn::Add(hn::Mul(row, hn::Set(kFloats, float{kPairsStride})), hn::Add(column, hn::Set(kFloats, kInteger)));
    const Word entry = hn::Sub(hn::BitCast(kWords, index), hn::Set(kWords, kIntegerBits));
    hn::StoreU(hn::IfThenElse(hn::RebindMask(kWords, inside), entry, hn::Set(kWords, kPairsOutside)), kWords, indexes);
}

HWY_INLINE hn::Mask<Floats> within(Float v, float low, float high)
{
    return hn::And(hn::Gt(v, hn::Set(kFloats, low)), hn::Lt(v, hn::Set(kFloats, high)));
}

struct Bilinear {
    Planes raw;
    const ResampleMaps& maps;
    int gate;
    Images out;
    const uint32_t* pairs;

    alignas(64) uint32_t indexes[2][kBlock];
    alignas(64) uint32_t samples[2][4 * kBlock]; // upper left, upper right, lower left, lower right
    bool rare[2][kBlock / kLanes];
};

// Step 1: where the upper left samples of a vector's pixels lie. The border shifts them by one column and row, so that
// truncated x + 1 is the index; it also clamps.
// Rare is a right or lower neighbour two further on: x + 1 just below a power of two rounds up.
HWY_INLINE void locate(Bilinear& job, int block, int k)
{
    const int i = kBlock * block + kLanes * k;
    const Float one = hn::Set(kFloats, 1.0f);
    const Float x = hn::LoadU(kFloats, job.maps.x + i);
    const Float y = hn::LoadU(kFloats, job.maps.y + i);
    const Float nextX = hn::Add(x, one);
    const Float nextY = hn::Add(y, one);
    const Float column = hn::Trunc(nextX);
    const Float row = hn::Trunc(nextY);
    const auto inside = hn::And(within(nextX, 0.0f, kWidth + 1.0f), within(nextY, 0.0f, kHeight + 1.0f));
    storeIndexes(column, row, inside, job.indexes[block & 1] + kLanes * k);

    // Below zero where either difference is.
    const Float beyond = hn::Or(hn::Sub(x, hn::Sub(column, one)), hn::Sub(y, hn::Sub(row, one)));
    job.rare[block & 1][k] = !hn::AllFalse(kFloats, hn::And(inside, hn::Lt(beyond, hn::Zero(kFloats))));
}

// Step 2: fetches the samples. Of each four pixels in a row one goes to each of four vectors, as the transposition in
// step 3 needs them.
HWY_INLINE void fetch(Bilinear& job, int block, int k)
{
    const uint32_t* indexes = job.indexes[block & 1] + kLanes * k;
    uint32_t* samples = job.samples[block & 1] + 4 * kLanes * k;
#pragma GCC unroll 16
    for (int i = 0; i < kLanes; ++i) {
        const uint32_t* upper = job.pairs + indexes[i];
        uint32_t* slot = samples + (i % 4) * kLanes + i / 4 * 4;
        memcpy(slot, upper, 2 * sizeof *slot);
        memcpy(slot + 2, upper + kPairsStride, 2 * sizeof *slot);
    }
}

struct Weights {
    Float right, left, lower, upper;
};

HWY_INLINE Float toFloat(Word v)
{
    return hn::ConvertTo(kFloats, hn::BitCast(kInts, v));
}

HWY_INLINE Float interpolate(Word upperLeft, Word upperRight, Word lowerLeft, Word lowerRight, const Weights& w)
{
    const Float upper = hn::Add(hn::Mul(toFloat(upperLeft), w.left), hn::Mul(toFloat(upperRight), w.right));
    const Float lower = hn::Add(hn::Mul(toFloat(lowerLeft), w.left), hn::Mul(toFloat(lowerRight), w.right));
    return hn::Add(hn::Mul(w.upper, upper), hn::Mul(w.lower, lower));
}

// With weights below 2, values lie below 2^22.
HWY_INLINE Word truncated(Float v)
{
    return hn::BitCast(kWords, hn::Add(hn::Trunc(v), hn::Set(kFloats, kSignedInteger)));
}

// Step 3. What is rare is left to the reference.
HWY_INLINE void interpolate(const Bilinear& job, int block, int k)
{
    const uint32_t* samples = job.samples[block & 1] + 4 * kLanes * k;
    const Word v0 = hn::Load(kWords, samples);
    const Word v1 = hn::Load(kWords, samples + kLanes);
    const Word v2 = hn::Load(kWords, samples + 2 * kLanes);
    const Word v3 = hn::Load(kWords, samples + 3 * kLanes);
    const auto upper01 = hn::BitCast(kLongs, hn::InterleaveLower(kWords, v0, v1));
    const auto upper23 = hn::BitCast(kLongs, hn::InterleaveLower(kWords, v2, v3));
    const auto lower01 = hn::BitCast(kLongs, hn::InterleaveUpper(kWords, v0, v1));
    const auto lower23 = hn::BitCast(kLongs, hn::InterleaveUpper(kWords, v2, v3));
    const Word upperLeft = hn::BitCast(kWords, hn::InterleaveLower(kLongs, upper01, upper23));
    const Word upperRight = hn::BitCast(kWords, hn::InterleaveUpper(kLongs, upper01, upper23));
    const Word lowerLeft = hn::BitCast(kWords, hn::InterleaveLower(kLongs, lower01, lower23));
    const Word lowerRight = hn::BitCast(kWords, hn::InterleaveUpper(kLongs, lower01, lower23));

    const int i = kBlock * block + kLanes * k;
    const Float one = hn::Set(kFloats, 1.0f);
    const Float fx = hn::LoadU(kFloats, job.maps.fractionX + i);
    const Float fy = hn::LoadU(kFloats, job.maps.fractionY + i);
    const Weights weights{fx, hn::Sub(one, fx), fy, hn::Sub(one, fy)};

    const Word low16 = hn::Set(kWords, 0xFFFF);
    const Float amplitude = interpolate(hn::And(upperLeft, low16), hn::And(upperRight, low16),
                                        hn::And(lowerLeft, low16), hn::And(lowerRight, low16), weights);
    hn::StoreU(hn::TruncateTo(kPixels, truncated(amplitude)), kPixels, job.out.amplitude + i);

    const Word d0 = hn::ShiftRight<16>(upperLeft);
    const Word d1 = hn::ShiftRight<16>(upperRight);
    const Word d2 = hn::ShiftRight<16>(lowerLeft);
    const Word d3 = hn::ShiftRight<16>(lowerRight);
    const Word spread = hn::Sub(hn::Max(hn::Max(d0, d1), hn::Max(d2, d3)), hn::Min(hn::Min(d0, d1), hn::Min(d2, d3)));
    const auto gated = hn::Gt(hn::BitCast(kInts, spread), hn::Set(kInts, job.gate));
    const Word depth = truncated(interpolate(d0, d1, d2, d3, weights));
    hn::StoreU(hn::TruncateTo(kPixels, hn::IfThenZeroElse(hn::RebindMask(kWords, gated), depth)), kPixels,
               job.out.depth + i);

    // Weights of 2 and more, infinity and NaN have this bit.
    const auto wild =
        hn::Ne(hn::And(hn::BitCast(kWords, hn::Or(fx, fy)), hn::Set(kWords, 0x40000000)), hn::Zero(kWords));
    if (HWY_UNLIKELY(job.rare[block & 1][k] || !hn::AllFalse(kWords, wild)))
        scalar::ResampleBilinear(job.raw, job.maps, job.gate, job.out, nullptr, i, i + kLanes);
}

LastPixel ResampleBilinear(Planes raw, const ResampleMaps& maps, int gate, Images out, uint32_t* pairs)
{
    mergePlanes(raw, pairs);
    Bilinear job{.raw = raw, .maps = maps, .gate = gate, .out = out, .pairs = pairs, .indexes{}, .samples{}, .rare{}};
    for (int block = -2; block < kBlocks; ++block)
        for (int k = 0; k < kBlock / kLanes; ++k) {
            if (block >= 0)
                interpolate(job, block, k);
            if (block >= -1 && block + 1 < kBlocks)
                fetch(job, block + 1, k);
            if (block + 2 < kBlocks)
                locate(job, block + 2, k);
        }
    return scalar::ResampleBilinear(raw, maps, gate, out, nullptr, VQD_PIXELS - 1, VQD_PIXELS);
}

void ResampleNearest(Planes raw, const float* x, const float* y, Images out, uint32_t* pairs)
{
    mergePlanes(raw, pairs);
    const Float half = hn::Set(kFloats, 0.5f);
    const Float one = hn::Set(kFloats, 1.0f);
    alignas(64) uint32_t indexes[kBlock];
    alignas(64) uint32_t samples[kBlock];
    for (int block = 0; block < VQD_PIXELS; block += kBlock) {
        for (int k = 0; k < kBlock; k += kLanes) {
            const Float column = hn::Add(hn::LoadU(kFloats, x + block + k), half);
            const Float row = hn::Add(hn::LoadU(kFloats, y + block + k), half);
            const auto inside = hn::And(within(column, -1.0f, VQD_WIDTH), within(row, -1.0f, VQD_HEIGHT));
            storeIndexes(hn::Add(hn::Trunc(column), one), hn::Add(hn::Trunc(row), one), inside, indexes + k);
        }
        for (int k = 0; k < kBlock; ++k)
            samples[k] = pairs[indexes[k]];
        for (int k = 0; k < kBlock; k += kLanes) {
            const Word sample = hn::Load(kWords, samples + k);
            hn::StoreU(hn::TruncateTo(kPixels, sample), kPixels, out.amplitude + block + k);
            hn::StoreU(hn::TruncateTo(kPixels, hn::ShiftRight<16>(sample)), kPixels, out.depth + block + k);
        }
    }
}

#else

LastPixel ResampleBilinear(Planes raw, const ResampleMaps& maps, int gate, Images out, uint32_t*)
{
    return scalar::ResampleBilinear(raw, maps, gate, out);
}

void ResampleNearest(Planes raw, const float* x, const float* y, Images out, uint32_t*)
{
    scalar::ResampleNearest(raw, x, y, out);
}

#endif

} // namespace simd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace simd
{

HWY_EXPORT(ResampleBilinear);
HWY_EXPORT(ResampleNearest);

LastPixel ResampleBilinear(Planes raw, const ResampleMaps& maps, int gate, Images out, uint32_t* pairs)
{
    return HWY_DYNAMIC_DISPATCH(ResampleBilinear)(raw, maps, gate, out, pairs);
}

void ResampleNearest(Planes raw, const float* x, const float* y, Images out, uint32_t* pairs)
{
    HWY_DYNAMIC_DISPATCH(ResampleNearest)(raw, x, y, out, pairs);
}

} // namespace simd

#endif
