// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A copy of both raw planes, for samples at the sensor's border and beyond. It is not read where all samples of a row
// of pixels lie inside. To be compiled for each target.
#if defined(VQD_PADDED_PLANES_INL) == defined(HWY_TARGET_TOGGLE) // once for each target
#ifdef VQD_PADDED_PLANES_INL
#undef VQD_PADDED_PLANES_INL
#else
#define VQD_PADDED_PLANES_INL
#endif

#include <algorithm>
#include <cstring>

#include "frame/resample.h"
#include "simd/targets.h"

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace simd::HWY_NAMESPACE
{

#if VQD_HAS_VECTORS

namespace hn = hwy::HWY_NAMESPACE;

// `padded` begins with the border.
HWY_INLINE void padRow(const uint16_t* row, uint16_t* padded)
{
    constexpr hn::CappedTag<uint16_t, 32> d;
    static_assert(VQD_WIDTH % hn::MaxLanes(d) == 0);
    for (int x = 0; x < VQD_WIDTH; x += hn::MaxLanes(d))
        hn::StoreU(hn::LoadU(d, row + x), d, padded + 1 + x);
    padded[0] = row[0];
    padded[VQD_WIDTH + 1] = row[VQD_WIDTH - 1];
}

// Rows are copied when they are needed, so that the caches still hold them, but two rows early, because a load stalls
// that reads what was just stored.
class PaddedPlanes
{
public:
    PaddedPlanes(Planes planes, uint16_t* workspace) : raw(planes), origin(workspace + kBorderColumn) {}

    // Rows of the planes up to, but not including, `end`. At least one, because the zeros come with it.
    void copy(int end)
    {
        for (end = std::clamp(end + 2, 1, +VQD_HEIGHT); m_rows < end; ++m_rows) {
            copyRow(m_rows, m_rows);
            if (m_rows == 0) {
                memset(origin - kBorderColumn, 0, sizeof *origin * kRowStride * kBorderRow);
                copyRow(0, -1);
            }
            if (m_rows == VQD_HEIGHT - 1)
                copyRow(m_rows, VQD_HEIGHT);
        }
    }

    const Planes raw;
    uint16_t* const origin; // the first column of the border, in the first row of zeros

private:
    void copyRow(int from, int to)
    {
        uint16_t* row = origin + kRowStride * (kBorderRow + 1 + to);
        padRow(raw.amplitude + VQD_WIDTH * from, row);
        padRow(raw.depth + VQD_WIDTH * from, row + kToDepths);
    }

    int m_rows = 0; // copied so far
};

#endif

} // namespace simd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
