// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Claims, and the closing of what was claimed.
#include "host/claim.h"

#include <cstring>
#include <fcntl.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

#include "host/camera_lock.h"
#include "host/usb_devices.h"

static bool g_claimed[VQD_MAX_DEVICES]; // by number

// "; grab (process 123) has it open", for each other program that this user may see.
static std::string holdersText(const ListedCamera& camera)
{
    std::string text;
    const auto append = [&text](const Holder& holder) {
        text += "; " + holder.name + " (process " + std::to_string(holder.process) + ") has it open";
    };
    const std::optional<Holder> locker = lockHolder(camera.place);
    if (locker)
        append(*locker);
    for (const Holder& holder : holdersOf(deviceNode(camera.place.bus, camera.place.address)))
        if (!locker || locker->process != holder.process)
            append(holder);
    return text;
}

// Whether some program has claimed the camera through usbfs, one that knows nothing of locks included.
static bool isClaimed(const ListedCamera& camera)
{
    const int node = open(deviceNode(camera.place.bus, camera.place.address).c_str(), O_RDWR | O_CLOEXEC);
    usbdevfs_getdriver driver{};
    const bool claimed = node >= 0 && ioctl(node, USBDEVFS_GETDRIVER, &driver) == 0 && // of interface 0
                         strcmp(driver.driver, "usbfs") == 0;
    if (node >= 0)
        close(node);
    return claimed;
}

static bool isHeld(const ListedCamera& camera)
{
    return !g_claimed[camera.nIndex] && (!lockCamera(camera.place) || isClaimed(camera));
}

static bool opens(const ListedCamera& camera)
{
    return g_claimed[camera.nIndex] = vqdDeviceOpen(camera.nIndex) == VQD_OK;
}

bool tryClaim(const ListedCamera& camera)
{
    return !isHeld(camera) && opens(camera);
}

void requireClaim(const ListedCamera& camera)
{
    if (isHeld(camera))
        throw CameraHeld(kFailed, nameOf(camera) + " cannot be opened" + holdersText(camera));
    if (!opens(camera))
        failOn(camera, nameOf(camera) + " cannot be opened" + holdersText(camera));
}

void closeClaimed()
{
    for (int n = 0; n < VQD_MAX_DEVICES; ++n)
        if (std::exchange(g_claimed[n], false))
            vqdDeviceClose(n);
}
