// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Windows for vectors of 16 pixels, which AVX-512 has. To be compiled for each target.
#if defined(VQD_VECTOR_WINDOWS_INL) == defined(HWY_TARGET_TOGGLE) // once for each target
#ifdef VQD_VECTOR_WINDOWS_INL
#undef VQD_VECTOR_WINDOWS_INL
#else
#define VQD_VECTOR_WINDOWS_INL
#endif

#include "frame/interpolate-inl.h"

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace simd::HWY_NAMESPACE
{

#if VQD_HAS_VECTORS && HWY_TARGET <= HWY_AVX3

constexpr int kGroup = 16, kWindowColumns = 31, kWindowRows = 4;

// Columns for the left and right samples of each pixel. The bits above tell the row.
HWY_INLINE Word indexOf(Half step)
{
    alignas(16) static constexpr uint8_t kBoth[] = {0, 1, 0, 1, 4, 5, 4, 5, 8, 9, 8, 9, 12, 13, 12, 13};
    const auto left = hn::TableLookupBytes(hn::BitCast(kBytes, weighted(step, 1, 32)), hn::LoadDup128(kBytes, kBoth));
    return hn::Add(hn::BitCast(kWords, left), hn::Set(kWords, 1u << 16));
}

template <int kStride> HWY_INLINE Samples pickFromTwo(const uint16_t* window, Word index)
{
    const auto row = [&](int number) {
        const auto samples = hn::LoadU(kHalves, window + kStride * number);
        return Word{_mm512_permutexvar_epi16(index.raw, samples.raw)};
    };
    const Word middle = row(1);
    const auto second = hn::TestBit(index, hn::Set(kWords, 32));
    return {hn::IfThenElse(second, middle, row(0)), hn::IfThenElse(second, row(2), middle)};
}

template <int kStride> HWY_INLINE Samples pick(const uint16_t* plane, const uint32_t* corners, Word index)
{
    const uint16_t* window = plane + corners[0];
    Samples samples = pickFromTwo<kStride>(window, index);
    const auto further = hn::TestBit(index, hn::Set(kWords, 64));
    if (!hn::AllFalse(kWords, further)) {
        const Samples below = pickFromTwo<kStride>(window + 2 * kStride, index);
        samples = {hn::IfThenElse(further, below.upper, samples.upper),
                   hn::IfThenElse(further, below.lower, samples.lower)};
    }
    return samples;
}

#endif

} // namespace simd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
