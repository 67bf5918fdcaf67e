// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Resampling from wide windows, with vectors of 16 pixels: for lenses that magnify or keep the scale, and where a lens
// looks past the sensor. A window is twice as wide as a vector and two rows high; the lower neighbours may lie in a
// third row:
//
//             left                                  left + 31
//     top      a a a a a a a a a a a a a a a a  b b b ... b
//     top + 1  c c c c ...                      d d d ... d    a pixel's upper left sample lies in these two rows,
//     top + 2  e e e e ...                      f f f ... f    its lower ones in the row below that
//
// One permutation picks a row's samples for all pixels from two registers, and the row of each pixel decides which
// ones it takes. Positions outside the sensor are moved to its border, so that they do not widen the window, and their
// samples are zeros. A vector whose samples lie still further apart is fetched sample by sample. To be compiled for
// each target.
#if defined(VQD_WIDE_WINDOWS_INL) == defined(HWY_TARGET_TOGGLE) // once for each target
#ifdef VQD_WIDE_WINDOWS_INL
#undef VQD_WIDE_WINDOWS_INL
#else
#define VQD_WIDE_WINDOWS_INL
#endif

#include <algorithm>
#include <bit>

#include "frame/each_sample-inl.h"
#include "frame/windows-inl.h"

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace simd::HWY_NAMESPACE
{

#if VQD_HAS_VECTORS && HWY_TARGET <= HWY_AVX3

constexpr uint32_t kWideColumns = 2 * kLanes - 1; // and one for right neighbours

// Where the upper left samples of a row of pixels lie in the merged planes with their border.
struct WidePositions {
    alignas(64) uint32_t columns[VQD_WIDTH];
    alignas(64) uint32_t rows[VQD_WIDTH];
    hn::Mask<Words> inside[kVectors];
    bool maySkip[kVectors]; // the right or lower neighbour of a sample may not be the next
    uint32_t lowest;        // of the rows
};

// True for what is above 0 and below `end`. The bits of what is not, less 1, are larger.
HWY_INLINE hn::Mask<Words> between0And(float end, Float v)
{
    const Word bits = hn::Sub(hn::BitCast(kWords, v), hn::Set(kWords, 1u));
    return hn::Lt(bits, hn::Set(kWords, std::bit_cast<uint32_t>(end) - 1));
}

HWY_INLINE Word onBorder(Word v, int last)
{
    return hn::BitCast(kWords, hn::Clamp(hn::BitCast(kInts, v), hn::Zero(kInts), hn::Set(kInts, last)));
}

HWY_INLINE void locateWide(const ResampleMaps& maps, int first, WidePositions& positions)
{
    const Float one = hn::Set(kFloats, 1.0f);
    const auto allOnes = hn::Set(kHalves, UINT16_MAX); // as in truncatePositions()
    Word lowest = hn::Zero(kWords);
    for (int k = 0; k < kVectors; ++k) {
        const int i = kLanes * k;
        const Float x = hn::LoadU(kFloats, maps.x + first + i), y = hn::LoadU(kFloats, maps.y + first + i);
        const auto most = hn::Max(hn::BitCast(kHalves, x), hn::BitCast(kHalves, y));
        positions.maySkip[k] = !hn::AllFalse(kHalves, hn::Eq(most, allOnes));
        const Float nextX = hn::Add(x, one), nextY = hn::Add(y, one);
        const auto inside = hn::And(between0And(kWidth + 1, nextX), between0And(kHeight + 1, nextY));
        positions.inside[k] = inside;
        Word column = truncated(nextX), row = truncated(nextY);
        if (!hn::AllTrue(kWords, inside)) {
            column = onBorder(column, VQD_WIDTH);
            row = onBorder(row, VQD_HEIGHT);
        }
        hn::Store(column, kWords, positions.columns + i);
        hn::Store(row, kWords, positions.rows + i);
        lowest = hn::Max(lowest, row);
    }
    positions.lowest = hn::GetLane(hn::MaxOfLanes(kWords, lowest));
}

// False if a sample lies outside its window.
HWY_INLINE bool pickWide(const uint32_t* pairs, const WidePositions& positions, int k, Samples& samples)
{
    const uint32_t *columns = positions.columns + kLanes * k, *rows = positions.rows + kLanes * k;
    const uint32_t left = std::min(columns[0], columns[kLanes - 1]);
    const uint32_t top = std::min(rows[0], rows[kLanes - 1]);
    const Word across = hn::Sub(hn::Load(kWords, columns), hn::Set(kWords, left));
    const Word down = hn::Sub(hn::Load(kWords, rows), hn::Set(kWords, top));
    const auto inside = positions.inside[k];
    const auto held = hn::And(hn::Lt(across, hn::Set(kWords, kWideColumns)), hn::Lt(down, hn::Set(kWords, 2u)));
    if (!hn::AllTrue(kWords, hn::Or(held, hn::Not(inside))))
        return false;
    struct Pair {
        Word left, right;
    };
    const Word next = hn::Add(across, hn::Set(kWords, 1u));
    const auto row = [&](int number) {
        const uint32_t* window = pairs + kPairsStride * (top + static_cast<uint32_t>(number)) + left;
        const Word a = hn::LoadU(kWords, window), b = hn::LoadU(kWords, window + kLanes);
        return Pair{lookUp(a, b, across), lookUp(a, b, next)};
    };
    const auto lower = hn::Ne(down, hn::Zero(kWords));
    const Pair first = row(0), second = row(1), third = row(2);
    samples = {hn::IfThenElse(lower, second.left, first.left), hn::IfThenElse(lower, second.right, first.right),
               hn::IfThenElse(lower, third.left, second.left), hn::IfThenElse(lower, third.right, second.right)};
    if (!hn::AllTrue(kWords, inside))
        samples = {hn::IfThenElseZero(inside, samples.upperLeft), hn::IfThenElseZero(inside, samples.upperRight),
                   hn::IfThenElseZero(inside, samples.lowerLeft), hn::IfThenElseZero(inside, samples.lowerRight)};
    return true;
}

Samples fetchEach(Bilinear& job, int pixel)
{
    job.planes.merge(VQD_HEIGHT);
    alignas(64) uint32_t indexes[kLanes], samples[4 * kLanes];
    locate(job.maps, pixel, indexes);
    fetch(job.planes.pairs, indexes, samples);
    return transposed(samples);
}

// Leaves the pixels that skip a sample to the reference.
void mend(const Bilinear& job, int first)
{
    const Float one = hn::Set(kFloats, 1.0f);
    for (int pixel = first; pixel < first + kLanes; ++pixel)
        for (const float* position : {job.maps.x + pixel, job.maps.y + pixel}) {
            const Float v = hn::Set(kFloats, *position);
            if (!hn::AllFalse(kFloats, skips(v, hn::Trunc(hn::Add(v, one)))))
                scalar::ResampleBilinear(job.planes.raw, job.maps, job.gate, job.out, nullptr, pixel, pixel + 1);
        }
}

// Resamples a row of pixels wherever the samples lie.
void resampleFromWideWindows(Bilinear& job, int first)
{
    WidePositions positions;
    locateWide(job.maps, first, positions);
    job.planes.merge(std::min<int>(static_cast<int>(positions.lowest) + 1, VQD_HEIGHT));
    const int next = std::min<int>(first + VQD_WIDTH, VQD_PIXELS - VQD_WIDTH);
    for (int k = 0; k < kVectors; ++k) {
        const int pixel = first + kLanes * k;
        __builtin_prefetch(job.maps.x + next + kLanes * k);
        __builtin_prefetch(job.maps.y + next + kLanes * k);
        Samples samples;
        if (!pickWide(job.planes.pairs, positions, k, samples))
            samples = fetchEach(job, pixel);
        interpolate(job, pixel, samples);
        if (HWY_UNLIKELY(positions.maySkip[k]))
            mend(job, pixel);
    }
}

#endif

} // namespace simd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
