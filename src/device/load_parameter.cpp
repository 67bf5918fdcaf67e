// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The parameter load: the camera's EEPROM image, or factory settings, and everything derived from it in a fixed order.
#include <cstring>

#include "config/eeprom.h"
#include "config/param_image.h"
#include "device/base/device_check.h"
#include "device/base/device_state.h"
#include "device/base/message.h"
#include "device/base/models.h"

static void loadImage(int n)
{
    uint8_t* image = stCamParam[n].image;
    memset(image, 0, VQD_EEPROM_BYTES);
    uint8_t block[VQD_EEPROM_BYTES];
    if (ReadEeprom(HandleOf(n), block)) {
        memcpy(image, block, sizeof block);
        RenderSerial(block, m_stIdentity[n].serial);
        return;
    }
    FillFactoryImage(image);
    PrintNumbers("%d VQD EEPROM Parameter Load Fail, Load Default Parameter.\n", n);
}

static constexpr float kLeastCx = 140.0f; // of a plausible depth lens
static constexpr float kMostCx = 180.0f;

// A default lens stands in for an implausible one. The image keeps what it has.
static void useDefaultLens(int n)
{
    static constexpr float kIntrinsic[4] = {204.0f, 204.0f, 160.0f, 120.0f};
    static constexpr float kDistortion[6] = {-0.346f, 0.12f, 0.0f, 0.0f, 0.0f, 0.0f};
    memcpy(m_fIntrinsicParam[n], kIntrinsic, sizeof kIntrinsic);
    memcpy(m_fDistorParam[n], kDistortion, sizeof kDistortion);
}

static void decodeSettings(int n)
{
    vqdGetModuleFrequency(n);
    vqdGetIntegrationTime(n);
    vqdGetOffset(n);
    vqdGetCheckThreshold(n);
    vqdGetDepthRange(n, &stCamParam[n].nMinDepth, &stCamParam[n].nMaxDepth);
    vqdGetFlipHorizontal(n);
    vqdGetFlipVertical(n);
}

static void loadLenses(int n)
{
    vqdGetLensParameter(n, m_fIntrinsicParam[n], m_fDistorParam[n]);
    vqdGetRGBLensParameter(n, m_fRGBIntrinsicParam[n], m_fRGBDistorParam[n]);
    vqdGetExtrinsicParameter(n, m_fExtrinsicParam[n]);
    const auto [fx, fy, cx, cy] = m_fIntrinsicParam[n];
    if (cx >= kLeastCx && cx <= kMostCx) {
        BuildPointCloudTable({fx, fy, cx, cy});
    } else {
        PrintLine("Lens Parameter Error, Set Default Param");
        useDefaultLens(n);
    }
}

static void loadTables(int n)
{
    if (!IsHostCorrected(n))
        return;
    vqdLoadFPPNData_4x4(n, m_nEEPROMFPPNBuf);
    LoadOrthogonalTable(n); // needs the lens
}

// The library-wide switches follow the camera that was loaded last.
static void takeSwitches(int n)
{
    m_bFPPN = vqdGetFPPN(n);
    m_nDepthGab = ReadU16(stCamParam[n].image, kDepthGap);
    m_bOrthogonal = vqdGetOrthogonal(n);
    m_nUndistortionMode = vqdGetUndistortion(n);
    BuildUndistortionMap(n);
    m_bRemoveEdge = vqdGetRemoveEdge(n);
    unsigned level = 0;
    m_bRemoveMotionBlur = vqdGetRemoveMotionBlur(n, &level);
}

int LoadParameter(int n)
{
    if (!IsDeviceNumberOrReport(n))
        return 0;
    loadImage(n);
    decodeSettings(n);
    loadLenses(n);
    loadTables(n);
    takeSwitches(n);
    return 1;
}

int vqdEEPROM_ParameterData_Load(int n, unsigned char* out)
{
    if (!IsReady(n) || out == nullptr)
        return 0;
    LoadParameter(n);
    memmove(out, stCamParam[n].image, VQD_IMAGE_BYTES);
    return 1;
}
