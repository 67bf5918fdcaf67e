// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Windows for four pixels, with vectors of four or eight. A byte shuffle takes from 16 bytes, which are eight samples
// of a row, so a vector of eight pixels has two windows side by side in its blocks:
//
//             left        left + 7
//     top      a a a a a a a a
//     top + 1  b b b b b b b b    upper samples lie in the first two rows, lower ones in the row below
//     top + 2  c c c c c c c c
//
// The shuffle makes 0 of what lies in another row, so that the results from two rows only need to be combined, without
// a branch. To be compiled for each target.
#if defined(VQD_QUAD_WINDOWS_INL) == defined(HWY_TARGET_TOGGLE) // once for each target
#ifdef VQD_QUAD_WINDOWS_INL
#undef VQD_QUAD_WINDOWS_INL
#else
#define VQD_QUAD_WINDOWS_INL
#endif

#include "frame/interpolate-inl.h"

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace simd::HWY_NAMESPACE
{

#if VQD_HAS_VECTORS && HWY_TARGET > HWY_AVX3

constexpr int kGroup = 4;                          // pixels that share a window
constexpr int kWindowColumns = 7, kWindowRows = 2; // of upper left samples
constexpr uint8_t kSecondRow = 128;                // the shuffle takes nothing for an index with this bit

// The bytes of the left and the right sample of each pixel, for the first row of the window.
HWY_INLINE Word indexOf(Half step)
{
    alignas(16) static constexpr uint8_t kEach[] = {0, 0, 0, 0, 4, 4, 4, 4, 8, 8, 8, 8, 12, 12, 12, 12};
    const auto first =
        hn::TableLookupBytes(hn::BitCast(kBytes, weighted(step, 2, kSecondRow)), hn::LoadDup128(kBytes, kEach));
    return hn::Add(hn::BitCast(kWords, first), hn::Set(kWords, 0x03020100u));
}

// The same row of each window of a vector of pixels.
template <typename D> HWY_INLINE hn::Vec<D> loadRow(D d, const uint16_t* plane, const uint32_t* corners)
{
    if constexpr (hn::MaxLanes(d) == 8) {
        return hn::LoadU(d, plane + corners[0]);
    } else {
        constexpr hn::Half<D> half;
        return hn::Combine(d, loadRow(half, plane, corners + hn::MaxLanes(half) / 2), loadRow(half, plane, corners));
    }
}

template <int kStride> HWY_INLINE Samples pick(const uint16_t* plane, const uint32_t* corners, Word index)
{
    const auto inUpper = hn::BitCast(kBytes, index);
    const auto inLower = hn::Xor(inUpper, hn::Set(kBytes, kSecondRow));
    const auto row = [&](int number) {
        return hn::BitCast(kBytes, loadRow(kHalves, plane + kStride * number, corners));
    };
    const auto either = [&](auto upper, auto lower) {
        return hn::BitCast(kWords,
                           hn::Or(hn::TableLookupBytesOr0(upper, inUpper), hn::TableLookupBytesOr0(lower, inLower)));
    };
    const auto middle = row(1);
    return {either(row(0), middle), either(middle, row(2))};
}

#endif

} // namespace simd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
