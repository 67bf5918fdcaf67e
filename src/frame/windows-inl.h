// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Resampling from windows: a lens moves neighbours nearly alike, so the samples of a vector of pixels lie side by side
// in a few rows, and permutations pick them from there. To be compiled for each target.
#if defined(VQD_WINDOWS_INL) == defined(HWY_TARGET_TOGGLE) // once for each target
#ifdef VQD_WINDOWS_INL
#undef VQD_WINDOWS_INL
#else
#define VQD_WINDOWS_INL
#endif

#include <algorithm>
#include <bit>

#include "frame/interpolate-inl.h"
#include "frame/resample.h"
#include "simd/targets.h"

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace simd::HWY_NAMESPACE
{

#if VQD_HAS_VECTORS

namespace hn = hwy::HWY_NAMESPACE;

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

// Where the upper left samples of a row of pixels lie.
struct Positions {
    alignas(64) uint32_t columns[VQD_WIDTH];
    alignas(64) uint32_t rows[VQD_WIDTH];
    float largestY;
    bool maySkip; // the right or lower neighbour of a sample may not be the next
};

// False if a sample lies outside the sensor.
HWY_INLINE bool truncatePositions(const float* x, const float* y, Positions& positions)
{
    auto halves = hn::Zero(kHalves);
    Word largestX = hn::Zero(kWords), largestY = hn::Zero(kWords);
    for (int i = 0; i < VQD_WIDTH; i += kLanes) {
        const Float vx = hn::LoadU(kFloats, x + i);
        const Float vy = hn::LoadU(kFloats, y + i);
        hn::Store(truncated(vx), kWords, positions.columns + i);
        hn::Store(truncated(vy), kWords, positions.rows + i);
        halves = hn::Max(halves, hn::Max(hn::BitCast(kHalves, vx), hn::BitCast(kHalves, vy)));
        largestX = hn::Max(largestX, hn::BitCast(kWords, vx));
        largestY = hn::Max(largestY, hn::BitCast(kWords, vy));
    }
    // The bits of what is negative or not a number are larger than those of every number.
    const auto inside = hn::And(hn::Lt(largestX, hn::Set(kWords, std::bit_cast<uint32_t>(kWidth))),
                                hn::Lt(largestY, hn::Set(kWords, std::bit_cast<uint32_t>(kHeight))));
    if (!hn::AllTrue(kWords, inside))
        return false;
    positions.largestY = std::bit_cast<float>(hn::GetLane(hn::MaxOfLanes(kWords, largestY)));
    // Only a mantissa of all ones can skip. We test its low 16 bits; anySkips() settles false alarms.
    positions.maySkip = !hn::AllFalse(kHalves, hn::Eq(halves, hn::Set(kHalves, UINT16_MAX)));
    return true;
}

// False if a sample lies outside its window.
HWY_INLINE bool placeWindows(const Positions& positions, const uint32_t* pairs, Windows& windows)
{
    windows.end = std::min<int>(static_cast<int>(positions.largestY) + 2, VQD_HEIGHT);
    Word anyAcross = hn::Zero(kWords), anyDown = hn::Zero(kWords);
    for (int k = 0; k < kVectors; ++k) {
        const int i = kLanes * k;
        const uint32_t left = positions.columns[i];
        const uint32_t top = std::min(positions.rows[i], positions.rows[i + kLanes - 1]);
        windows.upperLeft[k] = pairs + kPairsStride * (top + 1) + left + 1; // within the border

        const Word across = hn::Sub(hn::Load(kWords, positions.columns + i), hn::Set(kWords, left));
        const Word down = hn::Sub(hn::Load(kWords, positions.rows + i), hn::Set(kWords, top));
        anyAcross = hn::Or(anyAcross, across);
        anyDown = hn::Or(anyDown, down);
        constexpr int kColumnBits = std::countr_zero(uint32_t{kLanes});
        hn::Store(hn::Or(across, hn::ShiftLeft<kColumnBits>(down)), kWords, windows.indexes + i);
    }
    const auto held = hn::And(hn::Lt(anyAcross, hn::Set(kWords, uint32_t{kLanes})),
                              hn::Lt(anyDown, hn::Set(kWords, uint32_t{kWindowRows})));
    return hn::AllTrue(kWords, held);
}

// False if a sample lies outside its window or the sensor, or has a neighbour that is not the next.
HWY_INLINE bool findWindows(const float* x, const float* y, const uint32_t* pairs, Windows& windows)
{
    Positions positions;
    return truncatePositions(x, y, positions) && placeWindows(positions, pairs, windows) &&
           !(positions.maySkip && anySkips(x, y));
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

// Resamples a row of pixels. False, with nothing done, if some sample has no window.
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

#endif

} // namespace simd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
