// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Enumeration: libusb's device list, the id table, and a handle in a slot for every camera found.
#include "device/discovery.h"

#include "device/base/message.h"
#include "device/contexts.h"
#include "device/sysfs_cameras.h"

// Closes a slot's handle, if any. The context that it came from ends with its last handle.
static void closeHandle(libusb_device_handle* handle, libusb_context* context)
{
    if (handle == nullptr)
        return;
    libusb_close(handle);
    EndIfUnused(context);
}

void EmptySlot(int n)
{
    UsbDeviceSlot& slot = m_stUsbSlot[n];
    libusb_device* const device = slot.pDevice; // release leaves it as it was
    libusb_device_handle* const handle = slot.pHandle;
    slot = {};
    slot.pDevice = device;
    closeHandle(handle, m_pSlotContext[n]);
}

void FillSlot(int n, libusb_device* device, libusb_device_handle* handle)
{
    UsbDeviceSlot& slot = m_stUsbSlot[n];
    libusb_device_handle* const replaced = slot.pHandle;
    libusb_context* const replacedContext = m_pSlotContext[n];
    slot.pDevice = device;
    slot.pHandle = handle;
    m_pSlotContext[n] = m_pListContext;
    closeHandle(replaced, replacedContext);
    slot.nVendorId = usb_getvendor(handle);
    slot.nProductId = usb_getproduct(handle);
    slot.bOpened = 1;
    slot.nBusNumber = usb_get_busnumber(handle);
    slot.nDeviceAddress = usb_get_devaddr(handle);

    CameraIdentity& identity = m_stIdentity[n];
    identity.known = true;
    identity.closed = false;
    identity.bus = slot.nBusNumber;
    identity.address = slot.nDeviceAddress;
    identity.vendorId = slot.nVendorId;
    identity.productId = slot.nProductId;
}

bool OpenIntoSlot(int n, libusb_device* device)
{
    m_stUsbSlot[n].pDevice = device;
    libusb_device_handle* handle = nullptr;
    if (libusb_open(device, &handle) != 0) {
        PrintLine("Error in openning device.");
        return false;
    }
    FillSlot(n, device, handle);
    return true;
}

int GetUsbDevice(void)
{
    ReleaseDeviceList(); // still held after an open that failed
    // The last close has ended the default context, and libusb would crash without one. A read or a re-open may still
    // come.
    if (!EnsureContext()) {
        PrintLine("Error in device connection");
        return VQD_NOT_OPEN;
    }
    libusb_device** list = nullptr;
    m_nDevListCount = static_cast<int>(libusb_get_device_list(m_pListContext, &list));
    if (m_nDevListCount < 0) {
        PrintLine("Error in device connection");
        return VQD_NOT_OPEN;
    }
    m_pDevList = list;
    m_nDeviceCount = 0;
    for (DevInfo& info : m_stDevInfo)
        info.nIndex = -1;
    return VQD_OK;
}

int device_is_of_interest(struct libusb_device* dev)
{
    if (dev == nullptr)
        return 0;
    libusb_device_descriptor descriptor{};
    libusb_get_device_descriptor(dev, &descriptor);
    for (const UsbId& id : kUsbIds)
        if (descriptor.idVendor == id.vendor && descriptor.idProduct == id.product)
            return 1;
    return 0;
}

// A camera whose node is ready has passed udev's rules, so libusb would list it if events reached this process.
static bool lacksReadyCamera()
{
    UnlistedCameras unlisted{};
    FindUnlisted(unlisted);
    for (int i = 0; i < unlisted.count; ++i)
        if (IsNodeReady(unlisted.cameras[i]))
            return true;
    return false;
}

int GetVQDDeviceHandle(void)
{
    int listed = GetUsbDevice();
    for (int attempt = 0; attempt < kFreshContexts; ++attempt)
        if (listed == VQD_OK && lacksReadyCamera() && TakeFreshContext(attempt > 0))
            listed = GetUsbDevice();
    const int entries = listed == VQD_OK ? m_nDevListCount : 0;
    InitParameter();
    int found = 0;
    for (int i = 0; i < entries; ++i) {
        if (!device_is_of_interest(m_pDevList[i]))
            continue;
        // Cameras beyond the tenth are counted, so that listing can refuse them, but have no slot.
        if (found < VQD_MAX_DEVICES && !OpenIntoSlot(found, m_pDevList[i]))
            return VQD_NOT_OPEN; // the list stays held until the next release or enumeration
        ++found;
    }
    ReleaseDeviceList();
    if (found == 0)
        return VQD_NO_HANDLE;
    // The cameras of the higher numbers are gone or have a fresh handle under a lower number by now.
    for (int n = found; n < VQD_MAX_DEVICES; ++n) {
        EmptySlot(n);
        m_stIdentity[n] = {};
    }
    m_nDeviceCount = found;
    return VQD_OK;
}
