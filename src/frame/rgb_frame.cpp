// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The colour stream's bookkeeping. The application moves the pixels itself.
#include "device/base/device_state.h"
#include "device/base/message.h"
#include "frame/frame_stamp.h"
#include "frame/frame_state.h"

int vqdReadFromDevice_RGB888(int n, void* image, FrameInfo* info)
{
    if (!IsDeviceNumber(n) || image == nullptr || info == nullptr || m_nRGBCamOpen[n] == 0) {
        PrintLine("RGB error");
        return VQD_FAILED;
    }
    StampFrame(g_vqdHighReslTimerRGB[n], m_nTimeStampStartFlag_RGB, m_bStarted_RGB[n], m_pRGBFrameInfo[n], info);
    return VQD_OK;
}
