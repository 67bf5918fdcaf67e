// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Resampling in vectors, bit for bit what the reference does.
//
// The planes are merged into one, so that a load brings amplitude and depth. A lens moves neighbours nearly alike: the
// samples of a vector of pixels lie side by side in a few rows, so permutations pick them from windows of these rows.
// A row of pixels of which one has a sample elsewhere is resampled with a load for each sample; the gather
// instructions of many processors are slower than that.
#include "frame/resample.h"

#include <algorithm>
#include <bit>
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
using Halves = hn::Repartition<uint16_t, Words>;
using Pixels = hn::Rebind<uint16_t, Floats>;
using Float = hn::Vec<Floats>;
using Word = hn::Vec<Words>;

constexpr Floats kFloats;
constexpr Ints kInts;
constexpr Words kWords;
constexpr Longs kLongs;
constexpr Halves kHalves;
constexpr Pixels kPixels;

constexpr int kLanes = hn::MaxLanes(kFloats);
constexpr float kWidth = VQD_WIDTH;
constexpr float kHeight = VQD_HEIGHT;
constexpr int kVectors = VQD_WIDTH / kLanes; // in a row
static_assert(VQD_WIDTH % kLanes == 0 && kLanes % 4 == 0);

// Adding 2^23 to an integer below that leaves it in the mantissa.
constexpr float kInteger = 8388608.0f;
constexpr uint32_t kIntegerBits = 0x4B000000;

void mergeRow(const uint16_t* amplitude, const uint16_t* depth, uint32_t* row)
{
    constexpr hn::CappedTag<uint16_t, 32> d;
    static_assert(VQD_WIDTH % hn::MaxLanes(d) == 0);
    for (int x = 0; x < VQD_WIDTH; x += hn::MaxLanes(d))
        hn::StoreInterleaved2(hn::LoadU(d, amplitude + x), hn::LoadU(d, depth + x), d,
                              reinterpret_cast<uint16_t*>(row + 1 + x));
    // Not copied from the row: its stores are still on their way.
    const auto pair = [&](int x) { return amplitude[x] | uint32_t{depth[x]} << 16; };
    row[0] = pair(0);
    row[VQD_WIDTH + 1] = pair(VQD_WIDTH - 1);
}

// Both raw planes in one. Rows are merged when they are needed, so that the caches still hold them.
struct MergedPlanes {
    Planes raw;
    uint32_t* pairs; // the upper left corner of the border
    int rows = 0;    // merged so far

    void merge(int end)
    {
        constexpr size_t kSize = kPairsStride * sizeof *pairs;
        for (; rows < end; ++rows) {
            uint32_t* row = pairs + kPairsStride * (rows + 1);
            mergeRow(raw.amplitude + VQD_WIDTH * rows, raw.depth + VQD_WIDTH * rows, row);
            if (rows == 0)
                memcpy(row - kPairsStride, row, kSize);
            if (rows == VQD_HEIGHT - 1) {
                memcpy(row + kPairsStride, row, kSize);
                memset(pairs + kPairsOutside, 0, 2 * kSize);
            }
        }
    }
};

struct Bilinear {
    MergedPlanes planes;
    const ResampleMaps& maps;
    int gate;
    Images out;
};

struct Samples {
    Word upperLeft, upperRight, lowerLeft, lowerRight;
};

struct Weights {
    Float right, left, lower, upper;
};

// Truncates toward zero. The low half of what no int holds is 0.
HWY_INLINE Word truncated(Float v)
{
#if HWY_TARGET <= HWY_AVX3
    return Word{_mm512_cvttps_epi32(v.raw)};
#elif HWY_TARGET <= HWY_AVX2
    return Word{_mm256_cvttps_epi32(v.raw)};
#elif HWY_ARCH_X86
    return Word{_mm_cvttps_epi32(v.raw)};
#else
    const auto held = hn::Lt(hn::Abs(v), hn::Set(kFloats, 2147483648.0f));
    return hn::BitCast(kWords, hn::IfThenElseZero(hn::RebindMask(kInts, held), hn::ConvertTo(kInts, v)));
#endif
}

HWY_INLINE Float toFloat(Word v)
{
    return hn::ConvertTo(kFloats, hn::BitCast(kInts, v));
}

HWY_INLINE Word interpolate(Word upperLeft, Word upperRight, Word lowerLeft, Word lowerRight, const Weights& w)
{
    const Float upper = hn::Add(hn::Mul(toFloat(upperLeft), w.left), hn::Mul(toFloat(upperRight), w.right));
    const Float lower = hn::Add(hn::Mul(toFloat(lowerLeft), w.left), hn::Mul(toFloat(lowerRight), w.right));
    return truncated(hn::Add(hn::Mul(w.upper, upper), hn::Mul(w.lower, lower)));
}

// The depths of four samples stand in the upper halves.
HWY_INLINE Word depthSpread(const Samples& samples)
{
    const auto halves = [](Word v) { return hn::BitCast(kHalves, v); };
    const auto ul = halves(samples.upperLeft), ur = halves(samples.upperRight);
    const auto ll = halves(samples.lowerLeft), lr = halves(samples.lowerRight);
    const auto most = hn::Max(hn::Max(ul, ur), hn::Max(ll, lr));
    const auto least = hn::Min(hn::Min(ul, ur), hn::Min(ll, lr));
    return hn::ShiftRight<16>(hn::BitCast(kWords, hn::Sub(most, least)));
}

// A vector of pixels from `pixel` on.
HWY_INLINE void interpolate(const Bilinear& job, int pixel, const Samples& samples)
{
    const Float one = hn::Set(kFloats, 1.0f);
    const Float fx = hn::LoadU(kFloats, job.maps.fractionX + pixel);
    const Float fy = hn::LoadU(kFloats, job.maps.fractionY + pixel);
    const Weights weights{fx, hn::Sub(one, fx), fy, hn::Sub(one, fy)};
    const auto& [ul, ur, ll, lr] = samples;

    const Word low16 = hn::Set(kWords, 0xFFFF);
    const Word amplitude =
        interpolate(hn::And(ul, low16), hn::And(ur, low16), hn::And(ll, low16), hn::And(lr, low16), weights);
    hn::StoreU(hn::TruncateTo(kPixels, amplitude), kPixels, job.out.amplitude + pixel);

    Word depth = interpolate(hn::ShiftRight<16>(ul), hn::ShiftRight<16>(ur), hn::ShiftRight<16>(ll),
                             hn::ShiftRight<16>(lr), weights);
    if (job.gate < UINT16_MAX) {
        const auto gated = hn::Gt(hn::BitCast(kInts, depthSpread(samples)), hn::Set(kInts, job.gate));
        depth = hn::IfThenZeroElse(hn::RebindMask(kWords, gated), depth);
    }
    hn::StoreU(hn::TruncateTo(kPixels, depth), kPixels, job.out.depth + pixel);
}

// Whether the sample after x is not its neighbour: x + 1 just below a power of two rounds up. `column` is truncated
// x + 1.
HWY_INLINE hn::Mask<Floats> skips(Float x, Float column)
{
    return hn::Lt(x, hn::Sub(column, hn::Set(kFloats, 1.0f)));
}

bool anySkips(const float* x, const float* y)
{
    const Float one = hn::Set(kFloats, 1.0f);
    for (int i = 0; i < VQD_WIDTH; i += kLanes)
        for (const float* positions : {x + i, y + i}) {
            const Float v = hn::LoadU(kFloats, positions);
            if (!hn::AllFalse(kFloats, skips(v, hn::Trunc(hn::Add(v, one)))))
                return true;
        }
    return false;
}

// A window is as wide as a vector and four rows high; lower neighbours may lie in a fifth. It may extend beyond the
// border; no sample is picked there.
constexpr int kWindowRows = 4;

// The windows of a row of pixels, one for each vector of them.
struct Windows {
    const uint32_t* upperLeft[kVectors];
    int end; // of their rows, as MergedPlanes counts
    // Where in its window a pixel's upper left sample lies: the column and, above it, two bits for the row.
    alignas(64) uint32_t indexes[VQD_WIDTH];
};

// Returns false if some sample lies outside its window or the sensor, or is not the neighbour.
HWY_INLINE bool findWindows(const float* x, const float* y, const uint32_t* pairs, Windows& windows)
{
    alignas(64) uint32_t columns[VQD_WIDTH], rows[VQD_WIDTH];
    auto ends = hn::Zero(kHalves);
    Word largestX = hn::Zero(kWords), largestY = hn::Zero(kWords);
    for (int i = 0; i < VQD_WIDTH; i += kLanes) {
        const Float vx = hn::LoadU(kFloats, x + i);
        const Float vy = hn::LoadU(kFloats, y + i);
        hn::Store(truncated(vx), kWords, columns + i);
        hn::Store(truncated(vy), kWords, rows + i);
        ends = hn::Max(ends, hn::Max(hn::BitCast(kHalves, vx), hn::BitCast(kHalves, vy)));
        largestX = hn::Max(largestX, hn::BitCast(kWords, vx));
        largestY = hn::Max(largestY, hn::BitCast(kWords, vy));
    }
    // The bits of what is negative or not a number are larger than those of every number.
    const auto inside = hn::And(hn::Lt(largestX, hn::Set(kWords, std::bit_cast<uint32_t>(kWidth))),
                                hn::Lt(largestY, hn::Set(kWords, std::bit_cast<uint32_t>(kHeight))));
    if (!hn::AllTrue(kWords, inside))
        return false;
    const float lowest = std::bit_cast<float>(hn::GetLane(hn::MaxOfLanes(kWords, largestY)));
    windows.end = std::min<int>(static_cast<int>(lowest) + 2, VQD_HEIGHT);

    Word anyAcross = hn::Zero(kWords), anyDown = hn::Zero(kWords);
    for (int k = 0; k < kVectors; ++k) {
        const int i = kLanes * k;
        const uint32_t left = columns[i];
        const uint32_t top = std::min(rows[i], rows[i + kLanes - 1]);
        windows.upperLeft[k] = pairs + kPairsStride * (top + 1) + left + 1; // within the border

        const Word across = hn::Sub(hn::Load(kWords, columns + i), hn::Set(kWords, left));
        const Word down = hn::Sub(hn::Load(kWords, rows + i), hn::Set(kWords, top));
        anyAcross = hn::Or(anyAcross, across);
        anyDown = hn::Or(anyDown, down);
        constexpr int kColumnBits = std::countr_zero(uint32_t{kLanes});
        hn::Store(hn::Or(across, hn::ShiftLeft<kColumnBits>(down)), kWords, windows.indexes + i);
    }
    const auto held = hn::And(hn::Lt(anyAcross, hn::Set(kWords, uint32_t{kLanes})),
                              hn::Lt(anyDown, hn::Set(kWords, uint32_t{kWindowRows})));

    // A position that skips ends in 23 ones. Sixteen are seen here; few others end in these.
    const auto ones = hn::Eq(ends, hn::Set(kHalves, UINT16_MAX));
    return hn::AllTrue(kWords, held) && (hn::AllFalse(kHalves, ones) || !anySkips(x, y));
}

// Lane i of the result is lane index[i] % kLanes of `a` or, where the next higher bit of the index is set, of `b`.
HWY_INLINE Word lookUp(Word a, Word b, Word index)
{
#if HWY_TARGET <= HWY_AVX3
    return Word{_mm512_permutex2var_epi32(a.raw, index.raw, b.raw)};
#else
    const auto lanes = hn::IndicesFromVec(kWords, hn::And(index, hn::Set(kWords, kLanes - 1)));
    return hn::IfThenElse(hn::TestBit(index, hn::Set(kWords, kLanes)), hn::TableLookupLanes(b, lanes),
                          hn::TableLookupLanes(a, lanes));
#endif
}

// The samples of a vector of pixels, of which the upper left ones lie in the first two rows of a window.
HWY_INLINE Samples pickFromTwo(const uint32_t* window, Word index)
{
    const auto row = [&](int offset) { return hn::LoadU(kWords, window + offset); };
    const Word left = row(kPairsStride);
    const Word right = row(kPairsStride + 1);
    return {lookUp(row(0), left, index), lookUp(row(1), right, index), lookUp(left, row(2 * kPairsStride), index),
            lookUp(right, row(2 * kPairsStride + 1), index)};
}

HWY_INLINE Samples pick(const uint32_t* window, Word index)
{
    Samples samples = pickFromTwo(window, index);
    const auto further = hn::TestBit(index, hn::Set(kWords, 2 * kLanes));
    if (!hn::AllFalse(kWords, further)) {
        const Samples lower = pickFromTwo(window + 2 * kPairsStride, index);
        samples = {hn::IfThenElse(further, lower.upperLeft, samples.upperLeft),
                   hn::IfThenElse(further, lower.upperRight, samples.upperRight),
                   hn::IfThenElse(further, lower.lowerLeft, samples.lowerLeft),
                   hn::IfThenElse(further, lower.lowerRight, samples.lowerRight)};
    }
    return samples;
}

// Resamples a row of pixels, unless it has no windows.
HWY_INLINE bool resampleFromWindows(Bilinear& job, int first)
{
    Windows windows;
    if (!findWindows(job.maps.x + first, job.maps.y + first, job.planes.pairs, windows))
        return false;
    job.planes.merge(windows.end);
    const int next = std::min<int>(first + VQD_WIDTH, VQD_PIXELS - VQD_WIDTH);
    for (int k = 0; k < kVectors; ++k) {
        const int i = kLanes * k;
        interpolate(job, first + i, pick(windows.upperLeft[k], hn::Load(kWords, windows.indexes + i)));
        __builtin_prefetch(job.maps.x + next + i);
        __builtin_prefetch(job.maps.y + next + i);
    }
    return true;
}

// The entry at `column`, `row` of the merged planes, whole numbers; the zeros where not `inside`.
HWY_INLINE void storeIndexes(Float column, Float row, hn::Mask<Floats> inside, uint32_t* indexes)
{
    const Float index =
        hn::Add(hn::Mul(row, hn::Set(kFloats, float{kPairsStride})), hn::Add(column, hn::Set(kFloats, kInteger)));
    const Word entry = hn::Sub(hn::BitCast(kWords, index), hn::Set(kWords, kIntegerBits));
    hn::Store(hn::IfThenElse(hn::RebindMask(kWords, inside), entry, hn::Set(kWords, kPairsOutside)), kWords, indexes);
}

HWY_INLINE hn::Mask<Floats> within(Float v, float low, float high)
{
    return hn::And(hn::Gt(v, hn::Set(kFloats, low)), hn::Lt(v, hn::Set(kFloats, high)));
}

// Where the upper left samples of a vector of pixels lie. Returns whether any right or lower neighbour is not the next.
HWY_INLINE bool locate(const ResampleMaps& maps, int pixel, uint32_t* indexes)
{
    const Float one = hn::Set(kFloats, 1.0f);
    const Float x = hn::LoadU(kFloats, maps.x + pixel);
    const Float y = hn::LoadU(kFloats, maps.y + pixel);
    const Float nextX = hn::Add(x, one);
    const Float nextY = hn::Add(y, one);
    const Float column = hn::Trunc(nextX);
    const Float row = hn::Trunc(nextY);
    const auto inside = hn::And(within(nextX, 0.0f, kWidth + 1.0f), within(nextY, 0.0f, kHeight + 1.0f));
    storeIndexes(column, row, inside, indexes);

    return !hn::AllFalse(kFloats, hn::And(inside, hn::Or(skips(x, column), skips(y, row))));
}

// Of each four pixels in a row one goes to each of four vectors, as `transposed` needs them.
HWY_INLINE void fetch(const uint32_t* pairs, const uint32_t* indexes, uint32_t* samples)
{
#pragma GCC unroll 16
    for (int i = 0; i < kLanes; ++i) {
        const uint32_t* upper = pairs + indexes[i];
        uint32_t* slot = samples + (i % 4) * kLanes + i / 4 * 4;
        memcpy(slot, upper, 2 * sizeof *slot);
        memcpy(slot + 2, upper + kPairsStride, 2 * sizeof *slot);
    }
}

HWY_INLINE Samples transposed(const uint32_t* samples)
{
    const Word v0 = hn::Load(kWords, samples);
    const Word v1 = hn::Load(kWords, samples + kLanes);
    const Word v2 = hn::Load(kWords, samples + 2 * kLanes);
    const Word v3 = hn::Load(kWords, samples + 3 * kLanes);
    const auto upper01 = hn::BitCast(kLongs, hn::InterleaveLower(kWords, v0, v1));
    const auto upper23 = hn::BitCast(kLongs, hn::InterleaveLower(kWords, v2, v3));
    const auto lower01 = hn::BitCast(kLongs, hn::InterleaveUpper(kWords, v0, v1));
    const auto lower23 = hn::BitCast(kLongs, hn::InterleaveUpper(kWords, v2, v3));
    return {hn::BitCast(kWords, hn::InterleaveLower(kLongs, upper01, upper23)),
            hn::BitCast(kWords, hn::InterleaveUpper(kLongs, upper01, upper23)),
            hn::BitCast(kWords, hn::InterleaveLower(kLongs, lower01, lower23)),
            hn::BitCast(kWords, hn::InterleaveUpper(kLongs, lower01, lower23))};
}

// Resamples a row of pixels wherever the samples lie. What skips a sample is left to the reference.
void resampleEach(Bilinear& job, int first)
{
    job.planes.merge(VQD_HEIGHT);
    alignas(64) uint32_t indexes[VQD_WIDTH], samples[4 * VQD_WIDTH];
    bool skipping[kVectors];
    for (int k = 0; k < kVectors; ++k)
        skipping[k] = locate(job.maps, first + kLanes * k, indexes + kLanes * k);
    for (int k = 0; k < kVectors; ++k)
        fetch(job.planes.pairs, indexes + kLanes * k, samples + 4 * kLanes * k);
    for (int k = 0; k < kVectors; ++k) {
        const int pixel = first + kLanes * k;
        interpolate(job, pixel, transposed(samples + 4 * kLanes * k));
        if (HWY_UNLIKELY(skipping[k]))
            scalar::ResampleBilinear(job.planes.raw, job.maps, job.gate, job.out, nullptr, pixel, pixel + kLanes);
    }
}

LastPixel ResampleBilinear(Planes raw, const ResampleMaps& maps, int gate, Images out, uint32_t* pairs)
{
    constexpr bool kWindows = kLanes > 4; // narrower ones gain nothing
    Bilinear job{.planes{.raw = raw, .pairs = pairs + kPairsFirst}, .maps = maps, .gate = gate, .out = out};
    for (int first = 0; first < VQD_PIXELS; first += VQD_WIDTH)
        if (!kWindows || !resampleFromWindows(job, first))
            resampleEach(job, first);
    return scalar::ResampleBilinear(raw, maps, gate, out, nullptr, VQD_PIXELS - 1, VQD_PIXELS);
}

void ResampleNearest(Planes raw, const float* x, const float* y, Images out, uint32_t* pairs)
{
    pairs += kPairsFirst;
    MergedPlanes{.raw = raw, .pairs = pairs}.merge(VQD_HEIGHT);
    const Float half = hn::Set(kFloats, 0.5f);
    const Float one = hn::Set(kFloats, 1.0f);
    alignas(64) uint32_t indexes[VQD_WIDTH];
    alignas(64) uint32_t samples[VQD_WIDTH];
    for (int first = 0; first < VQD_PIXELS; first += VQD_WIDTH) {
        for (int k = 0; k < VQD_WIDTH; k += kLanes) {
            const Float column = hn::Add(hn::LoadU(kFloats, x + first + k), half);
            const Float row = hn::Add(hn::LoadU(kFloats, y + first + k), half);
            const auto inside = hn::And(within(column, -1.0f, VQD_WIDTH), within(row, -1.0f, VQD_HEIGHT));
            storeIndexes(hn::Add(hn::Trunc(column), one), hn::Add(hn::Trunc(row), one), inside, indexes + k);
        }
        for (int k = 0; k < VQD_WIDTH; ++k)
            samples[k] = pairs[indexes[k]];
        for (int k = 0; k < VQD_WIDTH; k += kLanes) {
            const Word sample = hn::Load(kWords, samples + k);
            hn::StoreU(hn::TruncateTo(kPixels, sample), kPixels, out.amplitude + first + k);
            hn::StoreU(hn::TruncateTo(kPixels, hn::ShiftRight<16>(sample)), kPixels, out.depth + first + k);
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
