// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "device/sysfs_cameras.h"

#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <unistd.h>

#include "device/base/device_state.h"

// A program may define this function to put another folder in front of /sys and /dev. Tests do, so that a real camera
// on their machine does not disturb them.
extern "C" __attribute__((weak, visibility("default"))) const char* VqdSystemRoot(void);

static constexpr int kPathBytes = 512;

static const char* systemRoot()
{
    return VqdSystemRoot != nullptr ? VqdSystemRoot() : "";
}

// Returns the number in an attribute of a device, or -1 if there is none.
static long readAttribute(const char* device, const char* attribute, int base)
{
    char path[kPathBytes];
    if (snprintf(path, sizeof path, "%s/sys/bus/usb/devices/%s/%s", systemRoot(), device, attribute) >= kPathBytes)
        return -1;
    FILE* const file = fopen(path, "re");
    if (file == nullptr)
        return -1;
    char text[16];
    char* end = text;
    const long value = fgets(text, sizeof text, file) != nullptr ? strtol(text, &end, base) : -1;
    fclose(file);
    return end == text ? -1 : value;
}

static bool isCamera(const char* device)
{
    const long vendor = readAttribute(device, "idVendor", 16);
    if (vendor != kVendorId)
        return false;
    const long product = readAttribute(device, "idProduct", 16);
    for (const UsbId& id : kUsbIds)
        if (vendor == id.vendor && product == id.product)
            return true;
    return false;
}

static bool isListed(long bus, long address)
{
    for (int i = 0; i < m_nDevListCount; ++i)
        if (libusb_get_bus_number(m_pDevList[i]) == bus && libusb_get_device_address(m_pDevList[i]) == address)
            return true;
    return false;
}

static int searchesBefore(const UnlistedCameras& before, long bus, long address)
{
    for (int i = 0; i < before.count; ++i)
        if (before.cameras[i].bus == bus && before.cameras[i].address == address)
            return before.cameras[i].searches;
    return 0;
}

void FindUnlisted(UnlistedCameras& unlisted)
{
    const UnlistedCameras before = unlisted;
    unlisted.count = 0;
    char path[kPathBytes];
    if (snprintf(path, sizeof path, "%s/sys/bus/usb/devices", systemRoot()) >= kPathBytes)
        return;
    DIR* const directory = opendir(path);
    if (directory == nullptr)
        return;
    while (const dirent* const entry = readdir(directory)) {
        const char* const device = entry->d_name;
        if (device[0] == '.' || unlisted.count == kMostUnlisted || !isCamera(device))
            continue;
        const long bus = readAttribute(device, "busnum", 10), address = readAttribute(device, "devnum", 10);
        if (bus < 0 || bus > UINT8_MAX || address < 0 || address > UINT8_MAX || isListed(bus, address))
            continue;
        unlisted.cameras[unlisted.count++] = {static_cast<uint8_t>(bus), static_cast<uint8_t>(address),
                                              searchesBefore(before, bus, address) + 1};
    }
    closedir(directory);
}

bool IsNodeReady(const UnlistedCamera& camera)
{
    char path[kPathBytes];
    const int length =
        snprintf(path, sizeof path, "%s/dev/bus/usb/%03d/%03d", systemRoot(), camera.bus, camera.address);
    return length < kPathBytes && access(path, R_OK | W_OK) == 0;
}
