// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Between depth pixels and camera space, and the extrinsic transform. Single precision, in exactly the order that is
// written; a depth or a focal length of 0 gives what IEEE arithmetic gives.
#include "geometry/coordinates.h"

#include <algorithm>

static constexpr float kMillimetres = 1000.0f; // in a metre
static constexpr float kMetres = 0.001f;       // in a millimetre

void vqdXYZ3DConversion(Point3f* out, Point3f p, ExtrinsicParam e)
{
    if (out == nullptr)
        return;
    *out = {e.r11 * p.x + e.r12 * p.y + e.r13 * p.z + e.tx, e.r21 * p.x + e.r22 * p.y + e.r23 * p.z + e.ty,
            e.r31 * p.x + e.r32 * p.y + e.r33 * p.z + e.tz};
}

// The adjugate, which is a rotation's inverse. The translation is negated but not rotated.
ExtrinsicParam vqdGetReverse(ExtrinsicParam e)
{
    return {e.r22 * e.r33 - e.r23 * e.r32,
            e.r13 * e.r32 - e.r12 * e.r33,
            e.r12 * e.r23 - e.r13 * e.r22,
            e.r23 * e.r31 - e.r21 * e.r33,
            e.r11 * e.r33 - e.r13 * e.r31,
            e.r13 * e.r21 - e.r11 * e.r23,
            e.r21 * e.r32 - e.r22 * e.r31,
            e.r12 * e.r31 - e.r11 * e.r32,
            e.r11 * e.r22 - e.r12 * e.r21,
            -e.tx,
            -e.ty,
            -e.tz};
}

void vqdDepthPointToCameraSpace(Point3f* out, Point3f p, LensIntrinsic k)
{
    if (out == nullptr)
        return;
    *out = {((p.x - k.cx) * p.z / k.fx) / kMillimetres, ((-(p.y - k.cy)) * p.z / k.fy) / kMillimetres,
            p.z / kMillimetres};
}

// Column and row carry half a pixel, so that truncation gives the nearest.
void vqdCameraSpacePointToDepth(Point3f* out, Point3f p, LensIntrinsic k)
{
    if (out == nullptr)
        return;
    *out = {k.fx * p.x / p.z + k.cx + 0.5f, (-p.y) * k.fy / p.z + k.cy + 0.5f, p.z * kMillimetres};
}

void BuildPointCloudTable(LensIntrinsic k)
{
    for (int v = 0; v < VQD_HEIGHT; ++v) {
        const float y = (-(static_cast<float>(v) - k.cy)) / k.fy / kMillimetres;
        for (int u = 0; u < VQD_WIDTH; ++u)
            pPointCloud[VQD_WIDTH * v + u] = {((static_cast<float>(u) - k.cx) / k.fx) / kMillimetres, y, kMetres};
    }
}

void scalar::DepthToPoints(const uint16_t* depth, const Point3f* rays, Point3f* points, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        const float d = depth[i];
        points[i] = {rays[i].x * d, rays[i].y * d, d * rays[i].z};
    }
}

// The ray table has an entry for each pixel of the sensor. A larger size asks for points beyond it, which stay
// untouched.
void vqdDepthFrameToCameraSpace(const uint16_t* depth, Point3f* points, int width, int height)
{
    if (depth == nullptr || points == nullptr || width < 1 || height < 1)
        return;
    const uint64_t pixels = static_cast<uint64_t>(width) * static_cast<uint64_t>(height);
    kernels::DepthToPoints(depth, pPointCloud, points, std::min<uint64_t>(pixels, VQD_PIXELS));
}
