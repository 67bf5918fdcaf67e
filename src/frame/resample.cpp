// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Resampling in plain C++, the reference. Single precision, in exactly the grouping that is written.
#include "frame/resample.h"

#include <algorithm>

#include "device/base/integers.h"

namespace
{

constexpr float kWidth = VQD_WIDTH;
constexpr float kHeight = VQD_HEIGHT;

// Where one output pixel comes from: four samples and two weights.
struct Source {
    int upperLeft, upperRight, lowerLeft, lowerRight; // indexes into a plane
    float fx, fy;
};

// Truncation takes (-1, 0) to sample 0, so a position counts as inside from there on. The comparisons put NaN outside,
// and they come before any conversion to int.
bool isInside(float x, float y)
{
    return x > -1.0f && x < kWidth && y > -1.0f && y < kHeight;
}

// The right neighbour is truncated from x + 1 in single precision: just below a power of two that is x + 2.
Source locate(float x, float y, float fx, float fy)
{
    const int x0 = static_cast<int>(x);
    const int x1 = std::min(static_cast<int>(x + 1.0f), VQD_WIDTH - 1);
    const int upper = static_cast<int>(y) * VQD_WIDTH;
    const int lower = std::min(static_cast<int>(y + 1.0f), VQD_HEIGHT - 1) * VQD_WIDTH;
    return {upper + x0, upper + x1, lower + x0, lower + x1, fx, fy};
}

float interpolate(const uint16_t* plane, const Source& s)
{
    const float upper = plane[s.upperLeft] * (1.0f - s.fx) + plane[s.upperRight] * s.fx;
    const float lower = plane[s.lowerLeft] * (1.0f - s.fx) + plane[s.lowerRight] * s.fx;
    return (1.0f - s.fy) * upper + s.fy * lower;
}

int spread(const uint16_t* plane, const Source& s)
{
    const auto [low, high] =
        std::minmax({plane[s.upperLeft], plane[s.upperRight], plane[s.lowerLeft], plane[s.lowerRight]});
    return high - low;
}

} // namespace

LastPixel scalar::ResampleBilinear(Planes raw, const ResampleMaps& maps, uint16_t gate, Images out, uint16_t*,
                                   int first, int last)
{
    LastPixel value{};
    for (int i = first; i < last; ++i) {
        value = {0.0f, 0.0f};
        if (isInside(maps.x[i], maps.y[i])) {
            const Source source = locate(maps.x[i], maps.y[i], maps.fractionX[i], maps.fractionY[i]);
            value.amplitude = interpolate(raw.amplitude, source);
            if (spread(raw.depth, source) <= gate)
                value.depth = interpolate(raw.depth, source);
        }
        out.amplitude[i] = Low16(Truncate(value.amplitude));
        out.depth[i] = Low16(Truncate(value.depth));
    }
    return value;
}

void scalar::ResampleNearest(Planes raw, const float* x, const float* y, Images out)
{
    for (int i = 0; i < VQD_PIXELS; ++i) {
        const float column = x[i] + 0.5f;
        const float row = y[i] + 0.5f;
        const bool inside = isInside(column, row);
        const int sample = inside ? static_cast<int>(row) * VQD_WIDTH + static_cast<int>(column) : 0;
        out.amplitude[i] = inside ? raw.amplitude[sample] : uint16_t{0};
        out.depth[i] = inside ? raw.depth[sample] : uint16_t{0};
    }
}
