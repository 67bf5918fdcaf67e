// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Resampling with a load for each sample, wherever it lies; the gather instructions of many processors are slower than
// that. To be compiled for each target.
#if defined(VQD_EACH_SAMPLE_INL) == defined(HWY_TARGET_TOGGLE) // once for each target
#ifdef VQD_EACH_SAMPLE_INL
#undef VQD_EACH_SAMPLE_INL
#else
#define VQD_EACH_SAMPLE_INL
#endif

#include <cstring>

#include "frame/interpolate-inl.h"
#include "frame/resample.h"
#include "simd/targets.h"

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace simd::HWY_NAMESPACE
{

#if VQD_HAS_VECTORS

namespace hn = hwy::HWY_NAMESPACE;

// Adding 2^23 to an integer below that leaves it in the mantissa.
constexpr float kInteger = 8388608.0f;
constexpr uint32_t kIntegerBits = 0x4B000000;

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

#endif

} // namespace simd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
