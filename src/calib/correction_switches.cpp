// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The FPPN and orthogonal switches. Each byte is composed from the library-wide flag of the other switch in it.
#include "config/param_image.h"
#include "device/base/device_check.h"
#include "device/base/models.h"
#include "usb/vendor_channel.h"

static constexpr uint8_t kOrthogonalOn = 19; // byte 2
static constexpr uint8_t kOrthogonalOff = 18;

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
    if ((code & ~kOrthogonalBit) <= 3)
        m_bOrthogonal = (code & kOrthogonalBit) != 0;
    return m_bOrthogonal;
}
