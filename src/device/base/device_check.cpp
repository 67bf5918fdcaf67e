// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The device check that nearly every operation on a camera runs first.
#include "device/base/device_check.h"

#include "device/base/message.h"

int VQDDevice_ErrorChecked(int n)
{
    if (!IsDeviceNumber(n) || m_stUsbSlot[n].bOpened == 0) {
        PrintLine("VQD Device not opened.");
        return VQD_NOT_OPEN;
    }
    if (m_stUsbSlot[n].pHandle == nullptr) {
        PrintLine("VQD device handle error.");
        return VQD_NO_HANDLE;
    }
    return VQD_OK;
}

int vqdDeviceIsOpen(int n)
{
    if (!IsReady(n))
        return 0;
    return m_stUsbSlot[n].bOpened == 1;
}
