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

#include "frame/padded_planes-inl.h"
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
using Halves = hn::Repartition<uint16_t, Words>;
using Bytes = hn::Repartition<uint8_t, Words>;
using Pixels = hn::Rebind<uint16_t, Floats>;
using Float = hn::Vec<Floats>;
using Word = hn::Vec<Words>;
using Half = hn::Vec<Halves>;

constexpr Floats kFloats;
constexpr Ints kInts;
constexpr Words kWords;
constexpr Halves kHalves;
constexpr Bytes kBytes;
constexpr Pixels kPixels;

constexpr int kLanes = hn::MaxLanes(kFloats);
constexpr float kWidth = VQD_WIDTH;
constexpr float kHeight = VQD_HEIGHT;
constexpr int kVectors = VQD_WIDTH / kLanes; // in a row
static_assert(VQD_WIDTH % kLanes == 0 && kLanes % 4 == 0);

struct Bilinear {
    PaddedPlanes planes;
    const ResampleMaps& maps;
    uint16_t gate;
    Images out;
};

// Of one plane, for a vector of pixels: the left sample in the lower half of each word, the right one in the upper
// half.
struct Samples {
    Word upper, lower;
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

template <typename V> HWY_INLINE Half halves(V v)
{
    return hn::BitCast(kHalves, v);
}

// The sum of the two halves of each word, each times its weight.
HWY_INLINE Word weighted(Half v, int16_t low, int16_t high)
{
    constexpr hn::RebindToSigned<Halves> kShorts;
    const auto weights = hn::OddEven(hn::Set(kShorts, high), hn::Set(kShorts, low));
    auto odd = hn::Zero(kInts);
    const auto even = hn::ReorderWidenMulAccumulate(kInts, hn::BitCast(kShorts, v), weights, hn::Zero(kInts), odd);
    return hn::BitCast(kWords, hn::RearrangeToOddPlusEven(even, odd));
}

HWY_INLINE Float toFloat(Word v)
{
    return hn::ConvertTo(kFloats, hn::BitCast(kInts, v));
}

HWY_INLINE Word interpolate(const Samples& samples, const Weights& w)
{
    const auto across = [&](Word v) {
        const Word left = hn::And(v, hn::Set(kWords, UINT16_MAX)), right = hn::ShiftRight<16>(v);
        return hn::Add(hn::Mul(toFloat(left), w.left), hn::Mul(toFloat(right), w.right));
    };
    const Float upper = across(samples.upper), lower = across(samples.lower);
    return truncated(hn::Add(hn::Mul(w.upper, upper), hn::Mul(w.lower, lower)));
}

// True where the four samples differ by at most `gate`.
HWY_INLINE hn::Mask<Words> passes(const Samples& samples, uint16_t gate)
{
    const Half upper = halves(samples.upper), lower = halves(samples.lower);
    alignas(16) static constexpr uint8_t kSwapped[] = {2, 3, 0, 1, 6, 7, 4, 5, 10, 11, 8, 9, 14, 15, 12, 13};
    const Half most = hn::Max(upper, lower), least = hn::Min(upper, lower);
    const Half other = hn::TableLookupBytes(least, halves(hn::LoadDup128(kBytes, kSwapped)));
    const Half excess = hn::SaturatedSub(hn::Sub(most, hn::Min(least, other)), hn::Set(kHalves, gate));
    return hn::Eq(hn::BitCast(kWords, excess), hn::Zero(kWords));
}

// Of each word, the low half.
HWY_INLINE void store(Word amplitude, Word depth, Images out, int pixel)
{
#if HWY_TARGET == HWY_SSE4 || HWY_TARGET == HWY_SSSE3
    alignas(16) static constexpr uint8_t kApart[] = {0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15};
    const Half both = hn::OddEven(halves(hn::ShiftLeft<16>(depth)), halves(amplitude));
    const Half apart = hn::TableLookupBytes(both, halves(hn::Load(kBytes, kApart)));
    hn::StoreU(hn::LowerHalf(apart), kPixels, out.amplitude + pixel);
    hn::StoreU(hn::UpperHalf(kPixels, apart), kPixels, out.depth + pixel);
#else
    hn::StoreU(hn::TruncateTo(kPixels, amplitude), kPixels, out.amplitude + pixel);
    hn::StoreU(hn::TruncateTo(kPixels, depth), kPixels, out.depth + pixel);
#endif
}

// Loaded, because GCC makes ones anew for each vector when it runs out of registers.
alignas(64) constexpr float kOnes[16] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1};

// A vector of pixels from `pixel` on.
HWY_INLINE void interpolate(const Bilinear& job, int pixel, const Samples& amplitudes, const Samples& depths)
{
    const Float one = hn::Load(kFloats, kOnes);
    const Float fx = hn::LoadU(kFloats, job.maps.fractionX + pixel);
    const Float fy = hn::LoadU(kFloats, job.maps.fractionY + pixel);
    const Weights weights{fx, hn::Sub(one, fx), fy, hn::Sub(one, fy)};
    const Word amplitude = interpolate(amplitudes, weights);
    Word depth = interpolate(depths, weights);
    if (job.gate != kNoGate)
        depth = hn::IfThenElseZero(passes(depths, job.gate), depth);
    store(amplitude, depth, job.out, pixel);
}

#endif

} // namespace simd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
