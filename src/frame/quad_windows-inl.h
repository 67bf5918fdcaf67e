// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Windows for four pixels. To be compiled for each target.
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

constexpr int kGroup = 4, kWindowColumns = 7, kWindowRows = 2;

HWY_INLINE Word indexOf(Half step)
{
    alignas(16) static constexpr uint8_t kEach[] = {0, 0, 0, 0, 4, 4, 4, 4, 8, 8, 8, 8, 12, 12, 12, 12};
    const auto first = hn::TableLookupBytes(hn::BitCast(kBytes, weighted(step, 2, 128)), hn::LoadDup128(kBytes, kEach));
    return hn::Add(hn::BitCast(kWords, first), hn::Set(kWords, 0x03020100u));
}

// A row of the windows of a vector of pixels.
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
    const auto inLower = hn::Xor(inUpper, hn::Set(kBytes, uint8_t{128}));
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
