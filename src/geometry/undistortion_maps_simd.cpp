// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The undistortion maps in vectors, bit for bit what the reference makes.
#include "geometry/undistortion.h"

#include "simd/targets.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "geometry/undistortion_maps_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace simd::HWY_NAMESPACE
{

#if VQD_HAS_VECTORS

namespace hn = hwy::HWY_NAMESPACE;

constexpr hn::CappedTag<float, 16> kFloats;
constexpr int kLanes = hn::MaxLanes(kFloats);
using Float = hn::Vec<decltype(kFloats)>;
static_assert(VQD_WIDTH % kLanes == 0);

HWY_INLINE Float set(float value)
{
    return hn::Set(kFloats, value);
}

HWY_INLINE Float sum(Float a, Float b, Float c)
{
    return hn::Add(hn::Add(a, b), c);
}

// Distort() in vectors, with its grouping.
HWY_INLINE void distort(const LensDistortion& d, Float x, Float y, Float& xd, Float& yd)
{
    const Float xx = hn::Mul(x, x);
    const Float yy = hn::Mul(y, y);
    const Float r2 = hn::Add(xx, yy);
    const Float k2 = hn::Mul(hn::Mul(set(d.k2), r2), r2);
    const Float k3 = hn::Mul(hn::Mul(hn::Mul(set(d.k3), r2), r2), r2);
    const Float radial = sum(hn::Add(hn::Mul(set(d.k1), r2), set(1.0f)), k2, k3);
    const Float two = set(2.0f);
    xd = sum(hn::Mul(x, radial), hn::Mul(hn::Mul(set(2.0f * d.p1), x), y),
             hn::Mul(set(d.p2), hn::Add(r2, hn::Mul(two, xx))));
    yd = sum(hn::Mul(y, radial), hn::Mul(set(d.p1), hn::Add(r2, hn::Mul(two, yy))),
             hn::Mul(hn::Mul(set(2.0f * d.p2), x), y));
}

HWY_INLINE void store(Float position, bool fractions, float* map, float* dist)
{
    hn::StoreU(position, kFloats, map);
    hn::StoreU(fractions ? hn::Sub(position, hn::Trunc(position)) : position, kFloats, dist);
}

LastMapPixel FillUndistortionMaps(const Lens& lens, bool fractions, const UndistortionMaps& maps)
{
    const auto [fx, fy, cx, cy] = lens.k;
    const LensDistortion d = lens.d;
    float columns[VQD_WIDTH];
    for (int u = 0; u < VQD_WIDTH; ++u)
        columns[u] = (static_cast<float>(u) - cx) / fx;
    float y = 0;
    for (int v = 0; v < VQD_HEIGHT; ++v) {
        y = (static_cast<float>(v) - cy) / fy;
        for (int u = 0; u < VQD_WIDTH; u += kLanes) {
            const int i = VQD_WIDTH * v + u;
            Float xd, yd;
            distort(d, hn::LoadU(kFloats, columns + u), set(y), xd, yd);
            store(hn::Add(hn::Mul(xd, set(fx)), set(cx)), fractions, maps.x + i, maps.distX + i);
            store(hn::Add(hn::Mul(yd, set(fy)), set(cy)), fractions, maps.y + i, maps.distY + i);
        }
    }
    return {columns[VQD_WIDTH - 1], y, Distort(d, columns[VQD_WIDTH - 1], y)};
}

#else

using scalar::FillUndistortionMaps;

#endif

} // namespace simd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace simd
{

HWY_EXPORT(FillUndistortionMaps);

LastMapPixel FillUndistortionMaps(const Lens& lens, bool fractions, const UndistortionMaps& maps)
{
    return HWY_DYNAMIC_DISPATCH(FillUndistortionMaps)(lens, fractions, maps);
}

} // namespace simd

#endif
