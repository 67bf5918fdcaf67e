// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The frame conversion as a pure function.
#pragma once

#include <cstddef>
#include <cstdint>

#include "VQD_API.h"
#include "simd/kernels.h"

namespace scalar
{
void DepthToPoints(const uint16_t* depth, const Point3f* rays, Point3f* points, size_t count);
}

namespace simd
{
// Camera-space points in metres from depth in millimetres and the rays of the same pixels.
void DepthToPoints(const uint16_t* depth, const Point3f* rays, Point3f* points, size_t count);
} // namespace simd
