// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The pixel check filters in vectors, bit for bit what the reference does. The reference also does the pixels left at
// the end.
#include "frame/filters.h"

#include <cstring>

#include "simd/targets.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "frame/filters_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace simd::HWY_NAMESPACE
{

#if VQD_HAS_VECTORS

namespace hn = hwy::HWY_NAMESPACE;

constexpr hn::ScalableTag<uint16_t> kPixels;
constexpr size_t kLanes = hn::MaxLanes(kPixels);
using Pixel = hn::Vec<decltype(kPixels)>;

// Amplitudes are integers, so a < limit means a < ceil(limit).
void AmplitudeCheck(const uint16_t* amplitude, uint16_t* depth, size_t count, uint8_t threshold, float scale)
{
    const float limit = static_cast<float>(threshold) * scale;
    if (!(limit > 0.0f))
        return;
    if (limit > 65535.0f) {
        memset(depth, 0, count * sizeof *depth);
        return;
    }
    const int whole = static_cast<int>(limit);
    const Pixel least = hn::Set(kPixels, static_cast<uint16_t>(static_cast<float>(whole) < limit ? whole + 1 : whole));
    size_t i = 0;
    for (; i + kLanes <= count; i += kLanes) {
        const Pixel a = hn::LoadU(kPixels, amplitude + i);
        hn::StoreU(hn::IfThenElseZero(hn::Eq(hn::Max(a, least), a), hn::LoadU(kPixels, depth + i)), kPixels, depth + i);
    }
    scalar::AmplitudeCheck(amplitude + i, depth + i, count - i, threshold, scale);
}

void ScatteringCheck(const uint16_t* amplitude, uint16_t* depth, size_t count, uint8_t threshold, float scale)
{
    constexpr hn::ScalableTag<float> floats;
    constexpr hn::Rebind<int32_t, decltype(floats)> ints;
    constexpr hn::Rebind<uint16_t, decltype(floats)> pixels;
    constexpr size_t lanes = hn::MaxLanes(floats);
    const auto t = hn::Set(floats, static_cast<float>(threshold));
    const auto scales = hn::Set(floats, scale);
    size_t i = 0;
    for (; i + lanes <= count; i += lanes) {
        const auto d = hn::PromoteTo(ints, hn::LoadU(pixels, depth + i));
        const auto a = hn::ConvertTo(floats, hn::PromoteTo(ints, hn::LoadU(pixels, amplitude + i)));
        const auto s = hn::Mul(hn::ConvertTo(floats, hn::Mul(d, d)), scales);
        const auto below = hn::RebindMask(ints, hn::Gt(hn::Div(t, s), a));
        hn::StoreU(hn::DemoteTo(pixels, hn::IfThenZeroElse(below, d)), pixels, depth + i);
    }
    scalar::ScatteringCheck(amplitude + i, depth + i, count - i, threshold, scale);
}

void MinMaxCheck(uint16_t* image, size_t count, uint16_t minimum, uint16_t maximum)
{
    const Pixel least = hn::Set(kPixels, minimum);
    const Pixel most = hn::Set(kPixels, maximum);
    size_t i = 0;
    for (; i + kLanes <= count; i += kLanes) {
        const Pixel v = hn::LoadU(kPixels, image + i);
        const auto inRange = hn::And(hn::Eq(hn::Max(v, least), v), hn::Eq(hn::Min(v, most), v));
        hn::StoreU(hn::IfThenElseZero(inRange, v), kPixels, image + i);
    }
    scalar::MinMaxCheck(image + i, count - i, minimum, maximum);
}

#else

using scalar::AmplitudeCheck;
using scalar::MinMaxCheck;
using scalar::ScatteringCheck;

#endif

} // namespace simd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace simd
{

HWY_EXPORT(AmplitudeCheck);
HWY_EXPORT(ScatteringCheck);
HWY_EXPORT(MinMaxCheck);

void AmplitudeCheck(const uint16_t* amplitude, uint16_t* depth, size_t count, uint8_t threshold, float scale)
{
    HWY_DYNAMIC_DISPATCH(AmplitudeCheck)(amplitude, depth, count, threshold, scale);
}

void ScatteringCheck(const uint16_t* amplitude, uint16_t* depth, size_t count, uint8_t threshold, float scale)
{
    HWY_DYNAMIC_DISPATCH(ScatteringCheck)(amplitude, depth, count, threshold, scale);
}

void MinMaxCheck(uint16_t* image, size_t count, uint16_t minimum, uint16_t maximum)
{
    HWY_DYNAMIC_DISPATCH(MinMaxCheck)(image, count, minimum, maximum);
}

} // namespace simd

#endif
