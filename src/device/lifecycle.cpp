// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// One camera's life between listing and close: claim, read-buffer initialisation, grabbing, release.
#include "config/param_image.h"
#include "device/base/clock.h"
#include "device/base/device_check.h"
#include "device/base/device_state.h"
#include "device/base/message.h"
#include "device/contexts.h"
#include "device/discovery.h"
#include "usb/vendor_channel.h"

static constexpr unsigned kGrabEditUs = 100;       // before the grab byte changes
static constexpr unsigned kGrabSettleUs = 100'000; // after the last image of a grab start or stop
static constexpr uint8_t kConfigurationIndex = 0;

static bool fetchConfiguration(libusb_device_handle* handle)
{
    libusb_config_descriptor* fetched = nullptr;
    if (usb_get_config_descriptor(handle, kConfigurationIndex, &fetched) < 0)
        return false;
    usb_free_config_descriptor(configDesc);
    configDesc = fetched;
    return true;
}

// Returns why the camera cannot be used, or null if it is claimed.
static const char* claimCamera(libusb_device_handle* handle)
{
    if (handle == nullptr)
        return "VQD Device handle false";
    if (usb_getvendor(handle) != kVendorId)
        return "VQD Device not detected";
    if (usb_kernel_driver_active(handle, kInterface) != 0)
        return "kernel driver active. Exitting";
    if (!fetchConfiguration(handle))
        return "Could not get Config descriptor ";
    if (usb_claim_interface(handle, kInterface) < 0)
        return "Error in claiming interface";
    return nullptr;
}

int vqdDeviceOpen(int n)
{
    const char* const refused = claimCamera(IsDeviceNumber(n) ? HandleOf(n) : nullptr);
    if (refused != nullptr)
        PrintLine(refused);
    if (refused == nullptr && ResetReadBuffer(n, "Error in b2 Control transfer"))
        return VQD_OK;
    UnInitialize_vqdapi(n, 0);
    return VQD_FAILED;
}

int vqdDeviceClose(int n)
{
    if (!IsDeviceNumber(n))
        return VQDDevice_ErrorChecked(n);
    UnInitParameter();
    UnInitialize_vqdapi(n, 1);
    m_stIdentity[n].closed = true;
    m_nDeviceOpen[n] = 0;
    return VQD_OK;
}

void UnInitialize_vqdapi(int n, int exitSession)
{
    if (!IsDeviceNumber(n))
        return;
    if (HandleOf(n) != nullptr) {
        vqdGrabStop(n);
        EmptySlot(n);
        --m_nDeviceCount;
    }
    ReleaseDeviceList();
    if (m_nDeviceCount == 0 && configDesc != nullptr) {
        usb_free_config_descriptor(configDesc);
        configDesc = nullptr;
    }
    if (exitSession == 1)
        EndContextUses();
}

int vqdGrabStart(int n)
{
    if (!IsReady(n))
        return 0;
    vqdWriteBufInit(n);
    SleepUs(kGrabEditUs);
    stCamParam[n].image[kGrab] = 1;
    // The camera's start sequence has the image twice. The second one decides.
    SendImage(n);
    const int result = SendImage(n);
    SleepUs(kGrabSettleUs);
    return result;
}

int vqdGrabStop(int n)
{
    if (!IsReady(n))
        return 0;
    SleepUs(kGrabEditUs);
    stCamParam[n].image[kGrab] = 0;
    const int result = SendImage(n);
    SleepUs(kGrabSettleUs);
    return result;
}
