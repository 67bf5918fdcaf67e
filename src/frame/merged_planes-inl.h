// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Both raw planes merged into one, so that one load brings amplitude and depth. To be compiled for each target.
#if defined(VQD_MERGED_PLANES_INL) == defined(HWY_TARGET_TOGGLE) // once for each target
#ifdef VQD_MERGED_PLANES_INL
#undef VQD_MERGED_PLANES_INL
#else
#define VQD_MERGED_PLANES_INL
#endif

#include <cstring>

#include "frame/resample.h"
#include "simd/targets.h"

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace simd::HWY_NAMESPACE
{

#if VQD_HAS_VECTORS

namespace hn = hwy::HWY_NAMESPACE;

void mergeRow(const uint16_t* amplitude, const uint16_t* depth, uint32_t* row)
{
    constexpr hn::CappedTag<uint16_t, 32> d;
    static_assert(VQD_WIDTH % hn::MaxLanes(d) == 0);
    for (int x = 0; x < VQD_WIDTH; x += hn::MaxLanes(d))
        hn::StoreInterleaved2(hn::LoadU(d, amplitude + x), hn::LoadU(d, depth + x), d,
                              reinterpret_cast<uint16_t*>(row + 1 + x));
    // Read from the planes, not from the row just stored: that load would stall.
    const auto pair = [&](int x) { return amplitude[x] | uint32_t{depth[x]} << 16; };
    row[0] = pair(0);
    row[VQD_WIDTH + 1] = pair(VQD_WIDTH - 1);
}

// Rows are merged when they are needed, so that the caches still hold them.
struct MergedPlanes {
    Planes raw;
    uint32_t* pairs; // the upper left corner of the border
    int rows = 0;    // merged so far

    void merge(int end)
    {
        constexpr size_t kSize = kPairsStride * sizeof *pairs;
        for (; rows < end; ++rows) {
            uint32_t* row = pairs + kPairsStride * (rows + 1);
            mergeRow(raw.amplitude + VQD_WIDTH * rows, raw.depth + VQD_WIDTH * rows, row);
            if (rows == 0)
                memcpy(row - kPairsStride, row, kSize);
            if (rows == VQD_HEIGHT - 1) {
                memcpy(row + kPairsStride, row, kSize);
                memset(pairs + kPairsOutside, 0, 2 * kSize);
            }
        }
    }
};

#endif

} // namespace simd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
