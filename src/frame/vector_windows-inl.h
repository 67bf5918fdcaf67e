// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Windows for vectors of 16 pixels, which AVX-512 has. A vector has one window in each plane. One permutation picks the
// left and the right samples of all its pixels from a row, and the row of each pixel decides which ones it takes:
//
//             left                            left + 31
//     left's   a a a a a a a a a a a a a a a a a ... a
//     row      b b b b b b b b b b b b b b b b b ... b    upper samples lie in the first four rows,
//              c c c c c c c c c c c c c c c c c ... c    lower ones in the row below
//              d d d d d d d d d d d d d d d d d ... d
//              e e e e e e e e e e e e e e e e e ... e
//
// Most vectors need the first three rows only. To be compiled for each target.
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

constexpr int kGroup = 16;                          // pixels that share a window
constexpr int kWindowColumns = 31, kWindowRows = 4; // of upper left samples
constexpr int kSecondRow = 32;

// The columns of the left and the right sample of each pixel. The two bits above the five for the column are the row.
HWY_INLINE Word indexOf(Half step)
{
    alignas(16) static constexpr uint8_t kBoth[] = {0, 1, 0, 1, 4, 5, 4, 5, 8, 9, 8, 9, 12, 13, 12, 13};
    const auto left =
        hn::TableLookupBytes(hn::BitCast(kBytes, weighted(step, 1, kSecondRow)), hn::LoadDup128(kBytes, kBoth));
    return hn::Add(hn::BitCast(kWords, left), hn::Set(kWords, 1u << 16));
}

// The samples of pixels whose upper samples lie in the first two rows of the window.
template <int kStride> HWY_INLINE Samples pickFromTwo(const uint16_t* window, Word index)
{
    const auto row = [&](int number) {
        const auto samples = hn::LoadU(kHalves, window + kStride * number);
        return Word{_mm512_permutexvar_epi16(index.raw, samples.raw)};
    };
    const Word middle = row(1);
    const auto second = hn::TestBit(index, hn::Set(kWords, kSecondRow));
    return {hn::IfThenElse(second, middle, row(0)), hn::IfThenElse(second, row(2), middle)};
}

template <int kStride> HWY_INLINE Samples pick(const uint16_t* plane, const uint32_t* corners, Word index)
{
    const uint16_t* window = plane + corners[0];
    Samples samples = pickFromTwo<kStride>(window, index);
    const auto further = hn::TestBit(index, hn::Set(kWords, 2 * kSecondRow));
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
