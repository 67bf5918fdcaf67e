// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Resampling in vectors, bit for bit what the reference does.
//
// Bilinear resampling works from windows, row by row. Samples that lie well inside are expected as long as they are
// found.
#include "frame/resample.h"

#include "simd/targets.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "frame/resample_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "frame/windows-inl.h"

HWY_BEFORE_NAMESPACE();
namespace simd::HWY_NAMESPACE
{

#if VQD_HAS_VECTORS

LastPixel ResampleBilinear(Planes raw, const ResampleMaps& maps, uint16_t gate, Images out, uint16_t* workspace)
{
    constexpr int kTryAgain = 8; // rows; a try in vain costs a tenth of the time
    Bilinear job{.planes{raw, workspace}, .maps = maps, .gate = gate, .out = out};
    bool inside = true;
    for (int y = 0; y < VQD_HEIGHT; ++y) {
        const int first = VQD_WIDTH * y;
        Windows windows;
        if (inside || y % kTryAgain == 0)
            inside = findInside(maps.x + first, maps.y + first, windows);
        if (inside) {
            resampleInside(job, first, windows);
        } else {
            findAnywhere(maps.x + first, maps.y + first, windows);
            resampleAnywhere(job, first, windows);
        }
        if (HWY_UNLIKELY(windows.maySkip))
            mendSkips(job, first);
    }
    return scalar::ResampleBilinear(raw, maps, gate, out, nullptr, VQD_PIXELS - 1, VQD_PIXELS);
}

void ResampleNearest(Planes raw, const float* x, const float* y, Images out)
{
    const Float half = hn::Set(kFloats, 0.5f), one = hn::Set(kFloats, 1.0f);
    alignas(64) uint32_t samples[VQD_WIDTH], inside[VQD_WIDTH];
    for (int first = 0; first < VQD_PIXELS; first += VQD_WIDTH) {
        for (int i = 0; i < VQD_WIDTH; i += kLanes) {
            const Float column = hn::Add(hn::LoadU(kFloats, x + first + i), half);
            const Float row = hn::Add(hn::LoadU(kFloats, y + first + i), half);
            const Word bits = onlyInside(hn::Set(kWords, UINT32_MAX), hn::Add(column, one), hn::Add(row, one));
            hn::Store(bits, kWords, inside + i);
            hn::Store(weighted(halves(hn::And(bits, truncated(column, row))), 1, VQD_WIDTH), kWords, samples + i);
        }
        // One store for both, because most processors store to one place at a time.
#pragma GCC unroll 4
        for (uint32_t& sample : samples)
            sample = raw.amplitude[sample] | uint32_t{raw.depth[sample]} << 16;
        for (int i = 0; i < VQD_WIDTH; i += kLanes) {
            const Word sample = hn::And(hn::Load(kWords, samples + i), hn::Load(kWords, inside + i));
            store(sample, hn::ShiftRight<16>(sample), out, first + i);
        }
    }
}

#else

LastPixel ResampleBilinear(Planes raw, const ResampleMaps& maps, uint16_t gate, Images out, uint16_t*)
{
    return scalar::ResampleBilinear(raw, maps, gate, out);
}

using scalar::ResampleNearest;

#endif

} // namespace simd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace simd
{

HWY_EXPORT(ResampleBilinear);
HWY_EXPORT(ResampleNearest);

LastPixel ResampleBilinear(Planes raw, const ResampleMaps& maps, uint16_t gate, Images out, uint16_t* workspace)
{
    return HWY_DYNAMIC_DISPATCH(ResampleBilinear)(raw, maps, gate, out, workspace);
}

void ResampleNearest(Planes raw, const float* x, const float* y, Images out)
{
    HWY_DYNAMIC_DISPATCH(ResampleNearest)(raw, x, y, out);
}

} // namespace simd

#endif
