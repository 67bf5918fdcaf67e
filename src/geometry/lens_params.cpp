// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Lens and extrinsic calibration: setters keep exact floats in the caches and quantised values in the image and the
// EEPROM.
#include <cstring>

#include "device/base/device_check.h"
#include "geometry/lens_fields.h"

static_assert(sizeof(LensIntrinsic) == sizeof m_fIntrinsicParam[0]);
static_assert(sizeof(LensDistortion) == sizeof m_fDistorParam[0]);
static_assert(sizeof(ExtrinsicParam) == sizeof m_fExtrinsicParam[0]);

// The caches keep the values as they are given, the image what it can hold of them.
static int setLens(int n, const LensBlock& block, const LensIntrinsic& k, const LensDistortion& d, float* intrinsic,
                   float* distortion)
{
    memcpy(intrinsic, &k, sizeof k);
    memcpy(distortion, &d, sizeof d);
    for (int i = 0; i < kIntrinsicFields; ++i)
        EncodeLensField(stCamParam[n].image, block.intrinsic[i], intrinsic[i]);
    for (int i = 0; i < kDistortionFields; ++i)
        EncodeLensField(stCamParam[n].image, block.distortion[i], distortion[i]);
    return SaveParameter(n);
}

static int decodeLens(int n, const LensBlock& block, float* intrinsic, float* distortion)
{
    if (!IsReady(n))
        return 0;
    for (int i = 0; intrinsic != nullptr && i < kIntrinsicFields; ++i)
        intrinsic[i] = DecodeLensField(stCamParam[n].image, block.intrinsic[i]);
    for (int i = 0; distortion != nullptr && i < kDistortionFields; ++i)
        distortion[i] = DecodeLensField(stCamParam[n].image, block.distortion[i]);
    return 1;
}

int vqdSetLensParameter(int n, LensIntrinsic intrinsic, LensDistortion distortion)
{
    if (!IsReady(n))
        return 0;
    return setLens(n, kDepthLensBlock, intrinsic, distortion, m_fIntrinsicParam[n], m_fDistorParam[n]);
}

int vqdGetLensParameter(int n, float* intrinsic, float* distortion)
{
    return decodeLens(n, kDepthLensBlock, intrinsic, distortion);
}

int vqdSetRGBLensParameter(int n, LensIntrinsic intrinsic, LensDistortion distortion)
{
    if (!IsReady(n))
        return 0;
    return setLens(n, kColourLensBlock, intrinsic, distortion, m_fRGBIntrinsicParam[n], m_fRGBDistorParam[n]);
}

int vqdGetRGBLensParameter(int n, float* intrinsic, float* distortion)
{
    return decodeLens(n, kColourLensBlock, intrinsic, distortion);
}

int vqdSetExtrinsicParameter(int n, ExtrinsicParam extrinsic)
{
    if (!IsReady(n))
        return 0;
    memcpy(m_fExtrinsicParam[n], &extrinsic, sizeof extrinsic);
    for (int i = 0; i < kExtrinsicFields; ++i)
        EncodeLensField(stCamParam[n].image, ExtrinsicField(i), m_fExtrinsicParam[n][i]);
    return SaveParameter(n);
}

int vqdGetExtrinsicParameter(int n, float* extrinsic)
{
    if (!IsReady(n))
        return 0;
    for (int i = 0; extrinsic != nullptr && i < kExtrinsicFields; ++i)
        extrinsic[i] = DecodeLensField(stCamParam[n].image, ExtrinsicField(i));
    return 1;
}
