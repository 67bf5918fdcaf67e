// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Lens and extrinsic calibration: setters keep exact floats in the caches and quantised values in the image and the
// EEPROM.
#include <cstring>

#include "device/device_state.h"
#include "geometry/lens_fields.h"

static_assert(sizeof(LensIntrinsic) == sizeof m_fIntrinsicParam[0]);
static_assert(sizeof(LensDistortion) == sizeof m_fDistorParam[0]);
static_assert(sizeof(ExtrinsicParam) == sizeof m_fExtrinsicParam[0]);

static void encodeLens(uint8_t* image, const LensBlock& block, const float* intrinsic, const float* distortion)
{
    for (int i = 0; i < kIntrinsicFields; ++i)
        EncodeLensField(image, block.intrinsic[i], intrinsic[i]);
    for (int i = 0; i < kDistortionFields; ++i)
        EncodeLensField(image, block.distortion[i], distortion[i]);
}

static int decodeLens(int n, const LensBlock& block, float* intrinsic, float* distortion)
{
    if (VQDDevice_ErrorChecked(n) != 1)
        return 0;
    for (int i = 0; intrinsic != nullptr && i < kIntrinsicFields; ++i)
        intrinsic[i] = DecodeLensField(stCamParam[n].image, block.intrinsic[i]);
    for (int i = 0; distortion != nullptr && i < kDistortionFields; ++i)
        distortion[i] = DecodeLensField(stCamParam[n].image, block.distortion[i]);
    return 1;
}

int vqdSetLensParameter(int n, LensIntrinsic intrinsic, LensDistortion distortion)
{
    if (VQDDevice_ErrorChecked(n) != 1)
        return 0;
    memcpy(m_fIntrinsicParam[n], &intrinsic, sizeof intrinsic);
    memcpy(m_fDistorParam[n], &distortion, sizeof distortion);
    encodeLens(stCamParam[n].image, kDepthLensBlock, m_fIntrinsicParam[n], m_fDistorParam[n]);
    return SaveParameter(n);
}

int vqdGetLensParameter(int n, float* intrinsic, float* distortion)
{
    return decodeLens(n, kDepthLensBlock, intrinsic, distortion);
}

int vqdSetRGBLensParameter(int n, LensIntrinsic intrinsic, LensDistortion distortion)
{
    if (VQDDevice_ErrorChecked(n) != 1)
        return 0;
    memcpy(m_fRGBIntrinsicParam[n], &intrinsic, sizeof intrinsic);
    memcpy(m_fRGBDistorParam[n], &distortion, sizeof distortion);
    encodeLens(stCamParam[n].image, kColourLensBlock, m_fRGBIntrinsicParam[n], m_fRGBDistorParam[n]);
    return SaveParameter(n);
}

int vqdGetRGBLensParameter(int n, float* intrinsic, float* distortion)
{
    return decodeLens(n, kColourLensBlock, intrinsic, distortion);
}

int vqdSetExtrinsicParameter(int n, ExtrinsicParam extrinsic)
{
    if (VQDDevice_ErrorChecked(n) != 1)
        return 0;
    memcpy(m_fExtrinsicParam[n], &extrinsic, sizeof extrinsic);
    for (int i = 0; i < kExtrinsicFields; ++i)
        EncodeLensField(stCamParam[n].image, ExtrinsicField(i), m_fExtrinsicParam[n][i]);
    return SaveParameter(n);
}

int vqdGetExtrinsicParameter(int n, float* extrinsic)
{
    if (VQDDevice_ErrorChecked(n) != 1)
        return 0;
    for (int i = 0; extrinsic != nullptr && i < kExtrinsicFields; ++i)
        extrinsic[i] = DecodeLensField(stCamParam[n].image, ExtrinsicField(i));
    return 1;
}
