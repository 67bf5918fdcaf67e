// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Re-open: closing a camera that stopped answering, finding it again and starting it with its settings. The other
// cameras keep their slots, handles and streams.
#include "device/base/clock.h"
#include "device/base/device_state.h"
#include "device/base/message.h"
#include "device/find_camera.h"
#include "usb/vendor_channel.h"

static constexpr unsigned kBeforeFindUs = 100'000;
static constexpr unsigned kAfterStartUs = 500'000; // the camera boots its sensor
static constexpr unsigned kBeforeGrabUs = 100'000;

// Returns false, with m_nDeviceOpen 0, once the budget is spent.
static bool findWithinBudget(int n)
{
    UnlistedCameras unlisted{};
    while (!ReopenBudgetSpent()) {
        m_stUsbSlot[n].bOpened = 0;
        SleepUs(kBeforeFindUs);
        if (FindCamera(n, unlisted) == VQD_OK)
            return true;
        --m_nReopenTime;
    }
    m_nDeviceOpen[n] = 0;
    return false;
}

int vqdDeviceReOpen(int n)
{
    if (!IsDeviceNumber(n))
        return VQDDevice_ErrorChecked(n);
    UnInitialize_vqdapi(n, 0);
    if (!findWithinBudget(n))
        return VQD_REOPEN_EXHAUSTED;
    libusb_reset_device(HandleOf(n));
    m_nReopenTime = kFullReopenBudget;
    m_nDeviceOpen[n] = 1;
    if (!ResetReadBuffer(n, "ReOpen Error in b2 Control transfer")) {
        UnInitialize_vqdapi(n, 0);
        return VQD_FAILED;
    }
    PrintLine("Device Open Success");
    SleepUs(kAfterStartUs);
    vqdReadBufInit(n);
    SleepUs(kBeforeGrabUs);
    vqdGrabStart(n); // sends the cached image, which gives the camera its whole configuration back
    return VQD_OK;
}
