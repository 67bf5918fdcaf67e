// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Edge removal and motion-blur removal: switches in the parameter image, mirrored in library-wide flags.
#include "config/param_image.h"
#include "device/base/device_check.h"
#include "device/base/models.h"
#include "usb/vendor_channel.h"

static constexpr uint8_t kEdgeOff = 255;     // bytes 43 and 45
static constexpr uint8_t kEdgeOn = 31;       // byte 43
static constexpr uint8_t kEdgeOnLevel = 100; // bytes 44 and 45
static constexpr uint8_t kMotionBlurOn = 16;
static constexpr uint8_t kMotionBlurOff = 0;

static void editHostEdge(uint8_t* image, bool on)
{
    image[kCorrectionCode] = CorrectionCode(m_bFPPN == 1, on);
    image[kHostEdgeLevel] = on ? kEdgeOnLevel : kEdgeOff;
}

// Values but 0 and 1 edit nothing.
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
