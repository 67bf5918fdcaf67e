// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The public list of cameras.
#include <cstring>

#include "config/param_image.h"
#include "device/base/device_state.h"
#include "device/base/message.h"
#include "device/base/models.h"
#include "device/contexts.h"
#include "device/discovery.h"

static constexpr int kNameBytes = 64; // the read buffer of a USB string, which holds 63 characters
static_assert(kNameBytes < sizeof DevInfo::szVendorName && kNameBytes < sizeof DevInfo::szDeviceName);

using ReadName = char*(libusb_device_handle*, char*, int);

// An unreadable string becomes an empty one, because what the field held before would select a wrong model.
static void readName(ReadName* read, libusb_device_handle* handle, char (&field)[256])
{
    char name[kNameBytes] = {};
    read(handle, name, kNameBytes);
    name[kNameBytes - 1] = '\0';
    memset(field, 0, sizeof field);
    memcpy(field, name, strlen(name));
}

// Ids and names as the camera tells them; the reserved fields are never written.
static void readIdentity(int i, DevInfo& info)
{
    libusb_device_handle* handle = HandleOf(i);
    info.nIndex = i;
    info.nVendorId = usb_getvendor(handle);
    info.nProductId = usb_getproduct(handle);
    readName(usb_get_VendorName, handle, info.szVendorName);
    readName(usb_get_DeviceName, handle, info.szDeviceName);
}

static void listCamera(int i, DevInfo& entry)
{
    DevInfo& info = m_stDevInfo[i];
    readIdentity(i, info); // before the load, which asks for the model
    LoadParameter(i);
    RenderSerial(stCamParam[i].image, info.szSerialNumber);
    memcpy(m_stIdentity[i].serial, info.szSerialNumber, sizeof m_stIdentity[i].serial);
    readIdentity(i, entry);
    memcpy(entry.szSerialNumber, info.szSerialNumber, sizeof entry.szSerialNumber);
    info.nModelFlag = entry.nModelFlag = static_cast<uint16_t>(ModelFlag(i));
}

int vqdGetDeviceList(DevInfo* list, int* count)
{
    PrintLine("VQD_Library_Ver2.4_180220");
    if (count == nullptr)
        return VQD_NOT_OPEN;
    if (!BeginContextUse()) {
        PrintLine("Error in initializing libusb library...");
        return VQD_NOT_OPEN;
    }
    GetVQDDeviceHandle();
    *count = -1;
    if (m_nDeviceCount > VQD_MAX_DEVICES) {
        PrintNumbers("VQD max device %d.\n", m_nDeviceCount);
        return VQD_NOT_OPEN;
    }
    // If listing failed, m_nDeviceCount is left over from earlier; numbers released since must not count.
    bool connected = m_nDeviceCount >= 1;
    for (int i = 0; connected && i < m_nDeviceCount; ++i)
        connected = HandleOf(i) != nullptr;
    if (!connected) {
        PrintLine("Error in Device not connection");
        return VQD_NOT_OPEN;
    }
    if (list == nullptr)
        return VQD_NOT_OPEN;
    for (int i = 0; i < m_nDeviceCount; ++i)
        listCamera(i, list[i]);
    *count = m_nDeviceCount;
    return VQD_OK;
}
