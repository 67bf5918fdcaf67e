// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The lens model, Brown-Conrady: radial terms k1, k2, k3 and tangential terms p1, p2 (D. C. Brown, "Decentering
// Distortion of Lenses", 1966). Single precision; the grouping of the terms is part of the results.
#pragma once

#include "VQD_API.h"

struct Lens {
    LensIntrinsic k;
    LensDistortion d;
};

// A distorted point in normalised coordinates, with the radius and factor that led to it.
struct Distorted {
    float x, y;
    float r2, radial;
};

inline Distorted Distort(const LensDistortion& d, float x, float y)
{
    const float r2 = x * x + y * y;
    const float radial = ((d.k1 * r2 + 1.0f) + d.k2 * r2 * r2) + d.k3 * r2 * r2 * r2;
    return {x * radial + 2.0f * d.p1 * x * y + d.p2 * (r2 + 2.0f * (x * x)),
            y * radial + d.p1 * (r2 + 2.0f * (y * y)) + 2.0f * d.p2 * x * y, r2, radial};
}
