// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Bilinear interpolation of a vector of pixels whose four samples each are at hand. To be compiled for each target.
#if defined(VQD_INTERPOLATE_INL) == defined(HWY_TARGET_TOGGLE) // once for each target
#ifdef VQD_INTERPOLATE_INL
#undef VQD_INTERPOLATE_INL
#else
#define VQD_INTERPOLATE_INL
#endif

#include <cstdint>

#include "frame/merged_planes-inl.h"
#include "frame/resample.h"
#include "simd/targets.h"

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

// Truncates toward zero. A value that no int holds leaves 0 in the low half.
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

// The depths of the samples stand in the upper halves.
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

// True where x + 1 rounds up past the next column. `column` is truncated x + 1.
HWY_INLINE hn::Mask<Floats> skips(Float x, Float column)
{
    return hn::Lt(x, hn::Sub(column, hn::Set(kFloats, 1.0f)));
}

#endif

} // namespace simd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
