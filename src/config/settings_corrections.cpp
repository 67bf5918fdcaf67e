// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Switches of the corrections: undistortion, FPPN, orthogonal, edge removal, motion-blur removal. They are stored in
// the parameter image and mirrored in library-wide flags. Bytes 48 and 49 hold two switches each, so a setter composes
// such a byte from its own switch and the flag of the other.
#include "config/param_image.h"
#include "device/base/device_check.h"
#include "device/base/models.h"
#include "usb/vendor_channel.h"

static constexpr uint8_t kOrthogonalOn = 19; // byte 2
static constexpr uint8_t kOrthogonalOff = 18;
static constexpr uint8_t kEdgeOff = 255;     // bytes 43 and 45
static constexpr uint8_t kEdgeOn = 31;       // byte 43
static constexpr uint8_t kEdgeOnLevel = 100; // bytes 44 and 45
static constexpr uint8_t kMotionBlurOn = 16;
static constexpr uint8_t kMotionBlurOff = 0;

// The mode is library-wide, so it is stored even if this camera is not open.
int vqdSetUndistortion(int n, int mode)
{
    if (!IsDeviceNumberOrReport(n))
        return 0;
    m_nUndistortionMode = mode;
    BuildUndistortionMap(n);
    if (!IsReady(n))
        return 0;
    stCamParam[n].image[kUndistortionCode] = UndistortionCode(mode, m_bOrthogonal == 1);
    return SendImage(n);
}

int vqdGetUndistortion(int n)
{
    if (!IsReady(n))
        return 0;
    const int mode = stCamParam[n].image[kUndistortionCode] & ~kOrthogonalBit;
    if (mode <= kUndistortionNearest)
        m_nUndistortionMode = mode;
    return m_nUndistortionMode;
}

int vqdSetOrthogonal(int n, int on)
{
    if (!IsReady(n))
        return 0;
    m_bOrthogonal = on;
    uint8_t* image = stCamParam[n].image;
    if (IsHostCorrected(n))
        image[kUndistortionCode] = UndistortionCode(m_nUndistortionMode, on == 1);
    else
        image[kOrthogonalSwitch] = on == 1 ? kOrthogonalOn : kOrthogonalOff;
    return SendImage(n);
}

int vqdGetOrthogonal(int n)
{
    if (!IsReady(n))
        return 0;
    const uint8_t* image = stCamParam[n].image;
    if (!IsHostCorrected(n)) {
        m_bOrthogonal = image[kOrthogonalSwitch] == kOrthogonalOn;
        return m_bOrthogonal;
    }
    const uint8_t code = image[kUndistortionCode];
    if ((code & ~kOrthogonalBit) <= kUndistortionNearest)
        m_bOrthogonal = (code & kOrthogonalBit) != 0;
    return m_bOrthogonal;
}

int vqdSetFPPN(int n, int on)
{
    if (!IsReady(n))
        return 0;
    m_bFPPN = on;
    stCamParam[n].image[kCorrectionCode] = CorrectionCode(on == 1, m_bRemoveEdge == 1);
    return SendImage(n);
}

int vqdGetFPPN(int n)
{
    if (!IsReady(n))
        return 0;
    const uint8_t code = stCamParam[n].image[kCorrectionCode];
    if ((code & ~(kFppnBit | kEdgeBit)) == 0)
        m_bFPPN = (code & kFppnBit) != 0;
    return m_bFPPN;
}

static void editHostEdge(uint8_t* image, bool on)
{
    image[kCorrectionCode] = CorrectionCode(m_bFPPN == 1, on);
    image[kHostEdgeLevel] = on ? kEdgeOnLevel : kEdgeOff;
}

// Values other than 0 and 1 edit nothing.
static void editCameraEdge(uint8_t* image, int on)
{
    if (on == 0)
        image[kEdgeSwitch] = kEdgeOff;
    if (on == 1) {
        image[kEdgeSwitch] = kEdgeOn;
        image[kEdgeLevel] = kEdgeOnLevel;
    }
}

int vqdSetRemoveEdge(int n, int on)
{
    if (!IsReady(n))
        return 0;
    m_bRemoveEdge = on;
    if (IsHostCorrected(n))
        editHostEdge(stCamParam[n].image, on == 1);
    else
        editCameraEdge(stCamParam[n].image, on);
    return SendImage(n);
}

int vqdGetRemoveEdge(int n)
{
    if (!IsReady(n))
        return 0;
    const uint8_t* image = stCamParam[n].image;
    if (!IsHostCorrected(n)) {
        m_bRemoveEdge = image[kEdgeSwitch] != kEdgeOff;
        return m_bRemoveEdge;
    }
    const int code = image[kCorrectionCode] & ~kFppnBit;
    if (code == 0 || code == kEdgeBit)
        m_bRemoveEdge = code;
    return m_bRemoveEdge;
}

int vqdSetRemoveMotionBlur(int n, int on, int level)
{
    if (!IsReady(n))
        return 0;
    m_bRemoveMotionBlur = on;
    uint8_t* image = stCamParam[n].image;
    image[kMotionBlurSwitch] = on == 1 ? kMotionBlurOn : kMotionBlurOff;
    if (on == 1)
        image[kMotionBlurLevel] = image[kMotionBlurLevelCopy] = static_cast<uint8_t>(level);
    return SendImage(n);
}

int vqdGetRemoveMotionBlur(int n, unsigned int* level)
{
    if (!IsReady(n))
        return 0;
    const uint8_t* image = stCamParam[n].image;
    if (image[kMotionBlurSwitch] == kMotionBlurOn)
        m_bRemoveMotionBlur = 1;
    if (image[kMotionBlurSwitch] == kMotionBlurOff)
        m_bRemoveMotionBlur = 0;
    if (level != nullptr)
        *level = image[kMotionBlurLevel];
    return m_bRemoveMotionBlur;
}
