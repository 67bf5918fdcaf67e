// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The frame conversion in vectors, bit for bit what the reference does. The reference also does the pixels left at the
// end.
#include "geometry/coordinates.h"

#include "simd/targets.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "geometry/coordinates_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace simd::HWY_NAMESPACE
{

#if VQD_HAS_VECTORS

namespace hn = hwy::HWY_NAMESPACE;

// A depth vector goes with three vectors of ray components, because a ray has three and each needs the pixel's depth.
void DepthToPoints(const uint16_t* depth, const Point3f* rays, Point3f* points, size_t count)
{
    constexpr hn::ScalableTag<float> floats;
    constexpr hn::Rebind<int32_t, decltype(floats)> ints;
    constexpr hn::Rebind<uint16_t, decltype(floats)> pixels;
    constexpr size_t lanes = hn::MaxLanes(floats);
    alignas(64) int32_t pixelOf[3 * lanes];
    for (size_t k = 0; k < 3 * lanes; ++k)
        pixelOf[k] = static_cast<int32_t>(k / 3);
    const auto first = hn::SetTableIndices(floats, pixelOf);
    const auto second = hn::SetTableIndices(floats, pixelOf + lanes);
    const auto third = hn::SetTableIndices(floats, pixelOf + 2 * lanes);
    size_t i = 0;
    for (; i + lanes <= count; i += lanes) {
        const auto d = hn::ConvertTo(floats, hn::PromoteTo(ints, hn::LoadU(pixels, depth + i)));
        const float* in = &rays[i].x;
        float* out = &points[i].x;
        hn::StoreU(hn::Mul(hn::LoadU(floats, in), hn::TableLookupLanes(d, first)), floats, out);
        hn::StoreU(hn::Mul(hn::LoadU(floats, in + lanes), hn::TableLookupLanes(d, second)), floats, out + lanes);
        hn::StoreU(hn::Mul(hn::LoadU(floats, in + 2 * lanes), hn::TableLookupLanes(d, third)), floats, out + 2 * lanes);
    }
    scalar::DepthToPoints(depth + i, rays + i, points + i, count - i);
}

#else

using scalar::DepthToPoints;

#endif

} // namespace simd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace simd
{

HWY_EXPORT(DepthToPoints);

void DepthToPoints(const uint16_t* depth, const Point3f* rays, Point3f* points, size_t count)
{
    HWY_DYNAMIC_DISPATCH(DepthToPoints)(depth, rays, points, count);
}

} // namespace simd

#endif
