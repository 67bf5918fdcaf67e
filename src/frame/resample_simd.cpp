// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Resampling in vectors, bit for bit what the reference does.
//
// A row of pixels is resampled from windows. If one of its pixels has a sample elsewhere, wider windows are tried where
// vectors are long enough, and at last each sample is loaded by itself.
#include "frame/resample.h"

#include "simd/targets.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "frame/resample_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "frame/each_sample-inl.h"
#include "frame/merged_planes-inl.h"
#include "frame/wide_windows-inl.h"
#include "frame/windows-inl.h"

HWY_BEFORE_NAMESPACE();
namespace simd::HWY_NAMESPACE
{

#if VQD_HAS_VECTORS

void resampleElsewhere(Bilinear& job, int first)
{
#if HWY_TARGET <= HWY_AVX3
    resampleFromWideWindows(job, first);
#else
    resampleEach(job, first);
#endif
}

LastPixel ResampleBilinear(Planes raw, const ResampleMaps& maps, int gate, Images out, uint32_t* pairs)
{
    constexpr bool kWindows = kLanes > 4; // narrower vectors gain nothing from them
    constexpr int kTryAgain = 8;          // rows; a try in vain costs a tenth of the time
    Bilinear job{.planes{.raw = raw, .pairs = pairs + kPairsFirst}, .maps = maps, .gate = gate, .out = out};
    bool held = kWindows;
    for (int y = 0; y < VQD_HEIGHT; ++y) {
        const int first = VQD_WIDTH * y;
        if (kWindows && (held || y % kTryAgain == 0))
            held = resampleFromWindows(job, first);
        if (!held)
            resampleElsewhere(job, first);
    }
    return scalar::ResampleBilinear(raw, maps, gate, out, nullptr, VQD_PIXELS - 1, VQD_PIXELS);
}

void ResampleNearest(Planes raw, const float* x, const float* y, Images out, uint32_t* pairs)
{
    pairs += kPairsFirst;
    MergedPlanes{.raw = raw, .pairs = pairs}.merge(VQD_HEIGHT);
    const Float half = hn::Set(kFloats, 0.5f);
    const Float one = hn::Set(kFloats, 1.0f);
    alignas(64) uint32_t indexes[VQD_WIDTH];
    alignas(64) uint32_t samples[VQD_WIDTH];
    for (int first = 0; first < VQD_PIXELS; first += VQD_WIDTH) {
        for (int k = 0; k < VQD_WIDTH; k += kLanes) {
            const Float column = hn::Add(hn::LoadU(kFloats, x + first + k), half);
            const Float row = hn::Add(hn::LoadU(kFloats, y + first + k), half);
            const auto inside = hn::And(within(column, -1.0f, VQD_WIDTH), within(row, -1.0f, VQD_HEIGHT));
            storeIndexes(hn::Add(hn::Trunc(column), one), hn::Add(hn::Trunc(row), one), inside, indexes + k);
        }
        for (int k = 0; k < VQD_WIDTH; ++k)
            samples[k] = pairs[indexes[k]];
        for (int k = 0; k < VQD_WIDTH; k += kLanes) {
            const Word sample = hn::Load(kWords, samples + k);
            hn::StoreU(hn::TruncateTo(kPixels, sample), kPixels, out.amplitude + first + k);
            hn::StoreU(hn::TruncateTo(kPixels, hn::ShiftRight<16>(sample)), kPixels, out.depth + first + k);
        }
    }
}

#else

LastPixel ResampleBilinear(Planes raw, const ResampleMaps& maps, int gate, Images out, uint32_t*)
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

LastPixel ResampleBilinear(Planes raw, const ResampleMaps& maps, int gate, Images out, uint32_t* pairs)
{
    return HWY_DYNAMIC_DISPATCH(ResampleBilinear)(raw, maps, gate, out, pairs);
}

void ResampleNearest(Planes raw, const float* x, const float* y, Images out, uint32_t* pairs)
{
    HWY_DYNAMIC_DISPATCH(ResampleNearest)(raw, x, y, out, pairs);
}

} // namespace simd

#endif
