// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Enumeration: libusb's device list, the id table, a handle in a slot for every camera found.
#include "device/discovery.h"

#include "device/message.h"

bool BeginContextUse()
{
    if (libusb_init(nullptr) < 0)
        return false;
    ++m_nContextUses;
    return true;
}

void EndContextUses()
{
    if (SlotsWithHandle() > 0)
        return;
    for (; m_nContextUses > 0; --m_nContextUses)
        libusb_exit(nullptr);
}

void ReleaseDeviceList()
{
    if (m_pDevList == nullptr)
        return;
    libusb_free_device_list(m_pDevList, 1);
    m_pDevList = nullptr;
}

void EmptySlot(int n)
{
    UsbDeviceSlot& slot = m_stUsbSlot[n];
    if (slot.pHandle != nullptr)
        libusb_close(slot.pHandle);
    libusb_device* const device = slot.pDevice; // release leaves it as it was
    slot = {};
    slot.pDevice = device;
}

void FillSlot(int n, libusb_device* device, libusb_device_handle* handle)
{
    UsbDeviceSlot& slot = m_stUsbSlot[n];
    if (slot.pHandle != nullptr)
        libusb_close(slot.pHandle);
    slot.pDevice = device;
    slot.pHandle = handle;
    slot.nVendorId = usb_getvendor(handle);
    slot.nProductId = usb_getproduct(handle);
    slot.bOpened = 1;
    slot.nBusNumber = usb_get_busnumber(handle);
    slot.nDeviceAddress = usb_get_devaddr(handle);

    CameraIdentity& identity = m_stIdentity[n];
    identity.known = true;
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
    // A read or a re-open after the last close finds the default context gone; libusb would crash without one.
    if (m_nContextUses == 0 && !BeginContextUse()) {
        PrintLine("Error in device connection");
        return VQD_NOT_OPEN;
    }
    libusb_device** list = nullptr;
    m_nDevListCount = static_cast<int>(libusb_get_device_list(nullptr, &list));
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
    for (const UsbId& id : m_stUsbIdTable)
        if (descriptor.idVendor == id.vendor && descriptor.idProduct == id.product)
            return 1;
    return 0;
}

int GetVQDDeviceHandle(void)
{
    const int entries = GetUsbDevice() == VQD_OK ? m_nDevListCount : 0;
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
    // The cameras of the numbers behind are gone, or have a fresh handle under a lower number by now.
    for (int n = found; n < VQD_MAX_DEVICES; ++n) {
        EmptySlot(n);
        m_stIdentity[n] = {};
    }
    m_nDeviceCount = found;
    return VQD_OK;
}
