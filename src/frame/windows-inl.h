// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Resampling from windows: a lens moves neighbours nearly alike, so the samples of a group of pixels lie side by side
// in a few rows, and permutations pick them from there. The corner of a window is the lowest column and row of the
// group's first and last pixel, so that mirrored and turned maps have windows too. A step is the way from there to a
// pixel's upper left sample. Both hold a column in the lower half of a word and a row in the upper half.
//
// Rows of pixels whose samples all lie in windows well inside the sensor are resampled from the raw planes. In others,
// outside samples are looked for as well, a vector that no windows hold is fetched sample by sample, and both read a
// copy with a border. To be compiled for each target.
#if defined(VQD_WINDOWS_INL) == defined(HWY_TARGET_TOGGLE) // once for each target
#ifdef VQD_WINDOWS_INL
#undef VQD_WINDOWS_INL
#else
#define VQD_WINDOWS_INL
#endif

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "frame/quad_windows-inl.h"
#include "frame/vector_windows-inl.h"

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace simd::HWY_NAMESPACE
{

#if VQD_HAS_VECTORS

// The windows of a row of pixels.
struct Windows {
    alignas(64) uint32_t corners[VQD_WIDTH]; // for each pixel, where its window begins in a plane
    alignas(64) uint32_t indexes[VQD_WIDTH]; // and where in it the samples lie
    bool held[kVectors];                     // by windows; if not, the corners are the upper left samples themselves
    int end;                                 // of the rows of the planes; with outside samples only
    bool maySkip;                            // the right or lower neighbour of a sample may not be the next
};

// Column and row in the halves of a word.
HWY_INLINE Word truncated(Float x, Float y)
{
    return hn::Or(truncated(x), hn::ShiftLeft<16>(truncated(y)));
}

// The limit for lower and for upper halves is a word.
HWY_INLINE bool allAtMost(Half v, uint32_t limit)
{
    const Word most = hn::Set(kWords, limit);
    return hn::AllTrue(kWords, hn::Eq(hn::BitCast(kWords, hn::Max(v, halves(most))), most));
}

constexpr uint32_t kLargestStep = (kWindowRows - 1) << 16 | (kWindowColumns - 1);

HWY_INLINE Half cornerOf(Word positions)
{
    if constexpr (kGroup == 4) {
        return hn::Min(halves(hn::Broadcast<0>(positions)), halves(hn::Broadcast<3>(positions)));
    } else {
        const auto first = hn::IndicesFromVec(kWords, hn::Zero(kWords));
        const auto last = hn::IndicesFromVec(kWords, hn::Set(kWords, uint32_t{kGroup - 1}));
        return hn::Min(halves(hn::TableLookupLanes(positions, first)), halves(hn::TableLookupLanes(positions, last)));
    }
}

// Only a mantissa of all ones can skip. We test its low 16 bits; mendSkips() settles false alarms.
HWY_INLINE bool mayAnySkip(Half positions)
{
    return !hn::AllFalse(kHalves, hn::Eq(positions, hn::Set(kHalves, UINT16_MAX)));
}

// False if a sample lies outside its window, or so near the border that the raw planes do not hold all that is loaded.
// The bits of what is negative or not a number are larger than those of every position. Even limits have no low bits.
HWY_INLINE bool findInside(const float* x, const float* y, Windows& windows)
{
    Half mostX = hn::Zero(kHalves), mostY = mostX, mostStep = mostX;
    for (int i = 0; i < VQD_WIDTH; i += kLanes) {
        const Float vx = hn::LoadU(kFloats, x + i), vy = hn::LoadU(kFloats, y + i);
        mostX = hn::Max(mostX, halves(vx));
        mostY = hn::Max(mostY, halves(vy));
        const Word position = truncated(vx, vy);
        const Half corner = cornerOf(position);
        const Half step = hn::Sub(halves(position), corner);
        mostStep = hn::Max(mostStep, step);
        hn::Store(weighted(corner, 1, VQD_WIDTH), kWords, windows.corners + i);
        hn::Store(indexOf(step), kWords, windows.indexes + i);
    }
    windows.maySkip = mayAnySkip(hn::Max(mostX, mostY));
    return allAtMost(mostX, std::bit_cast<uint32_t>(kWidth - 2) - 1) &&
           allAtMost(mostY, std::bit_cast<uint32_t>(kHeight - 6) - 1) && allAtMost(mostStep, kLargestStep);
}

// True for what is above 0 and below `end`. The bits of what is not, less 1, are larger; with the sign turned, signed
// numbers tell, which all processors compare.
HWY_INLINE hn::Mask<Words> between0And(float end, Float v)
{
    constexpr uint32_t kTurn = 0x80000000u - 1;
    const auto limit = hn::Set(kInts, static_cast<int32_t>(std::bit_cast<uint32_t>(end) + kTurn));
    const auto bits = hn::BitCast(kInts, hn::Add(hn::BitCast(kWords, v), hn::Set(kWords, kTurn)));
    return hn::RebindMask(kWords, hn::Lt(bits, limit));
}

// 0, where the zeros are, for what lies outside the sensor. The positions are those of right and lower neighbours.
HWY_INLINE Word onlyInside(Word position, Float nextX, Float nextY)
{
    const auto inside = hn::And(between0And(kWidth + 1, nextX), between0And(kHeight + 1, nextY));
    return hn::IfThenElseZero(inside, position);
}

HWY_INLINE void findAnywhere(const float* x, const float* y, Windows& windows)
{
    const Float one = hn::Set(kFloats, 1.0f);
    Half most = hn::Zero(kHalves), mostPosition = most;
    for (int k = 0; k < kVectors; ++k) {
        const int i = kLanes * k;
        const Float vx = hn::LoadU(kFloats, x + i), vy = hn::LoadU(kFloats, y + i);
        most = hn::Max(most, hn::Max(halves(vx), halves(vy)));
        const Float nextX = hn::Add(vx, one), nextY = hn::Add(vy, one);
        const Word position =
            onlyInside(hn::Add(truncated(nextX, nextY), hn::Set(kWords, kBorderRow << 16)), nextX, nextY);
        mostPosition = hn::Max(mostPosition, halves(position));
        const Half corner = cornerOf(position);
        const Half step = hn::Sub(halves(position), corner);
        windows.held[k] = allAtMost(step, kLargestStep);
        hn::Store(weighted(windows.held[k] ? corner : halves(position), 1, kRowStride), kWords, windows.corners + i);
        hn::Store(indexOf(step), kWords, windows.indexes + i);
    }
    const uint32_t largest = hn::GetLane(hn::MaxOfLanes(kWords, hn::BitCast(kWords, mostPosition)));
    windows.end = static_cast<int>(largest >> 16) - kBorderRow + 1;
    windows.maySkip = mayAnySkip(most);
}

bool skips(float position)
{
    return position < std::trunc(position + 1.0f) - 1.0f;
}

// Leaves the pixels that skip a sample to the reference.
void mendSkips(const Bilinear& job, int first)
{
    for (int i = first; i < first + VQD_WIDTH; i += kLanes) {
        if (!mayAnySkip(
                hn::Max(halves(hn::LoadU(kFloats, job.maps.x + i)), halves(hn::LoadU(kFloats, job.maps.y + i)))))
            continue;
        for (int pixel = i; pixel < i + kLanes; ++pixel)
            if (skips(job.maps.x[pixel]) || skips(job.maps.y[pixel]))
                scalar::ResampleBilinear(job.planes.raw, job.maps, job.gate, job.out, nullptr, pixel, pixel + 1);
    }
}

// A load for each sample and its right neighbour; the gather instructions of many processors are slower.
HWY_INLINE Samples fetchEach(const uint16_t* plane, const uint32_t* positions)
{
    alignas(64) uint32_t upper[kLanes], lower[kLanes];
#pragma GCC unroll 16
    for (int i = 0; i < kLanes; ++i) {
        memcpy(upper + i, plane + positions[i], sizeof *upper);
        memcpy(lower + i, plane + positions[i] + kRowStride, sizeof *lower);
    }
    return {hn::Load(kWords, upper), hn::Load(kWords, lower)};
}

// The maps of the next row. For narrower vectors, which take longer, the processor does so by itself.
HWY_INLINE void prefetchNext(const Bilinear& job, int pixel)
{
    if (kLanes < 16)
        return;
    const int next = std::min<int>(pixel + VQD_WIDTH, VQD_PIXELS - kLanes);
    __builtin_prefetch(job.maps.x + next);
    __builtin_prefetch(job.maps.y + next);
}

HWY_INLINE void resampleInside(const Bilinear& job, int first, const Windows& windows)
{
    for (int i = 0; i < VQD_WIDTH; i += kLanes) {
        const uint32_t* corners = windows.corners + i;
        const Word index = hn::Load(kWords, windows.indexes + i);
        interpolate(job, first + i, pick<VQD_WIDTH>(job.planes.raw.amplitude, corners, index),
                    pick<VQD_WIDTH>(job.planes.raw.depth, corners, index));
        prefetchNext(job, first + i);
    }
}

HWY_INLINE void resampleAnywhere(Bilinear& job, int first, const Windows& windows)
{
    job.planes.copy(windows.end);
    const uint16_t *amplitudes = job.planes.origin, *depths = amplitudes + kToDepths;
    for (int k = 0; k < kVectors; ++k) {
        const int i = kLanes * k;
        const uint32_t* corners = windows.corners + i;
        if (windows.held[k]) {
            const Word index = hn::Load(kWords, windows.indexes + i);
            interpolate(job, first + i, pick<kRowStride>(amplitudes, corners, index),
                        pick<kRowStride>(depths, corners, index));
        } else {
            interpolate(job, first + i, fetchEach(amplitudes, corners), fetchEach(depths, corners));
        }
        prefetchNext(job, first + i);
    }
}

#endif

} // namespace simd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
