// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Acquisition settings that are modes: several cameras, illumination, flips.
#include "config/param_image.h"
#include "device/base/clock.h"
#include "device/base/device_check.h"
#include "device/base/message.h"
#include "usb/vendor_channel.h"

static constexpr unsigned kFlipSettleUs = 100'000;
static constexpr int kUnknownMode = -4;

int vqdSetMultiCamMode(int n, int mode, int slaveCount, int slaveID)
{
    if (!IsDeviceNumberOrReport(n))
        return 0;
    if (slaveCount < 1 || slaveCount > 9) {
        PrintLine("Error: Multi Cam Slave Cam Count(1~9) Over.");
        return 0;
    }
    if (slaveID < 0 || slaveID > 9) {
        PrintLine("Error: Multi Cam SlaveID Number(0~9) Over.");
        return 0;
    }
    uint8_t* image = stCamParam[n].image;
    image[kMultiSync] = mode == 1;
    image[kSlaveCount] = static_cast<uint8_t>(slaveCount);
    image[kSlaveId] = static_cast<uint8_t>(slaveID);
    return SendImage(n);
}

int vqdSetMultiSyncMode(int n, int on)
{
    if (!IsDeviceNumberOrReport(n))
        return 0;
    stCamParam[n].image[kMultiSync] = on == 1;
    return SendImage(n);
}

int vqdGetMultiSyncMode(int n)
{
    if (!IsDeviceNumberOrReport(n))
        return 0;
    const int mode = stCamParam[n].image[kMultiSync];
    return mode <= 1 ? mode : kUnknownMode;
}

int vqdIlluminationOnOff(int n, int on)
{
    if (!IsDeviceNumberOrReport(n))
        return 0;
    stCamParam[n].image[kGrab] = on == 1;
    return SendImage(n);
}

// The other flip comes from its library-wide flag, so it is the one set or read last on any camera.
int vqdSetFlipHorizontal(int n, int on)
{
    if (!IsReady(n))
        return 0;
    m_bHorizontal = on == 1;
    stCamParam[n].image[kFlip] = FlipCode(on == 1, m_bVertical == 1);
    if (SendImage(n) != VQD_OK)
        return 0;
    SleepUs(kFlipSettleUs);
    return 1;
}

int vqdGetFlipHorizontal(int n)
{
    if (!IsReady(n))
        return 0;
    m_bHorizontal = IsFlippedHorizontally(stCamParam[n].image[kFlip]);
    return m_bHorizontal;
}

// Unlike its sibling, it also waits after a failed send.
int vqdSetFlipVertical(int n, int on)
{
    if (!IsReady(n))
        return 0;
    m_bVertical = on == 1;
    stCamParam[n].image[kFlip] = FlipCode(m_bHorizontal == 1, on == 1);
    const int result = SendImage(n);
    SleepUs(kFlipSettleUs);
    return result;
}

int vqdGetFlipVertical(int n)
{
    if (!IsReady(n))
        return 0;
    m_bVertical = IsFlippedVertically(stCamParam[n].image[kFlip]);
    return m_bVertical;
}
