// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Undistortion: the maps of a camera, and the inverse of the lens model for one pixel.
#include "geometry/undistortion.h"

#include <cmath>
#include <cstring>

#include "config/param_image.h"
#include "device/base/device_check.h"
#include "device/base/integers.h"

// A lens at the edge of convergence needs some thousand passes, a usual one fewer than ten.
static constexpr int kMostPasses = 10000;

// The lens that device n computes with.
static Lens lensOf(int n)
{
    Lens lens;
    memcpy(&lens.k, m_fIntrinsicParam[n], sizeof lens.k);
    memcpy(&lens.d, m_fDistorParam[n], sizeof lens.d);
    return lens;
}

int BuildUndistortionMap(int n)
{
    if (!IsReady(n))
        return 0;
    if (!IsUndistortionMode(m_nUndistortionMode))
        return 1;
    const LastMapPixel last = kernels::FillUndistortionMaps(lensOf(n), m_nUndistortionMode != kUndistortionNearest,
                                                            {m_fXp2, m_fYp2, fDist_x2, fDist_y2});
    m_fX_nu = last.x;
    m_fY_nu = last.y;
    m_fRu2 = last.distorted.r2;
    m_fRadial_d = last.distorted.radial;
    m_fX_nd = last.distorted.x;
    m_fY_nd = last.distorted.y;
    return 1;
}

// Distorts the estimate and subtracts the error until it is below a tenth of a pixel. Returns false if it does not get
// there.
static bool undistort(const Lens& lens, float xt, float yt, float& xu, float& yu)
{
    const float stepX = 0.1f / lens.k.fx; // a tenth of a pixel
    const float stepY = 0.1f / lens.k.fy;
    const float limit = stepX * stepX + stepY * stepY;
    xu = xt;
    yu = yt;
    for (int pass = 0; pass < kMostPasses; ++pass) {
        const Distorted point = Distort(lens.d, xu, yu);
        const float ex = point.x - xt;
        const float ey = point.y - yt;
        xu = xu - ex;
        yu = yu - ey;
        const float error = ex * ex + ey * ey;
        if (error < limit)
            return true;
        if (!std::isfinite(error))
            return false;
    }
    return false;
}

void vqdGetUndistortPixel(int n, int* column, int* row)
{
    if (!IsDeviceNumber(n) || column == nullptr || row == nullptr)
        return;
    const Lens lens = lensOf(n);
    const auto [fx, fy, cx, cy] = lens.k;
    if (fx == 0 || fy == 0)
        return;
    const float yt = (static_cast<float>(*row) - cy) / fy;
    const float xt = (static_cast<float>(*column) - cx) / fx - lens.d.skew * yt;
    float xu = 0;
    float yu = 0;
    if (!undistort(lens, xt, yt, xu, yu))
        return;
    const float u = (xu + lens.d.skew * yu) * fx + cx + 0.5f;
    const float v = yu * fy + cy + 0.5f;
    if (!FitsInt(u) || !FitsInt(v))
        return;
    *column = static_cast<int>(u);
    *row = static_cast<int>(v);
}
