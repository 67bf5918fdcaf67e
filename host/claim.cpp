// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Claims, and the closing of what was claimed.
#include "host/claim.h"

#include <utility>

#include "host/usb_devices.h"

static bool g_claimed[VQD_MAX_DEVICES]; // by number

// "; grab (process 123) has it open", for each other program that this user may see.
static std::string holdersText(const ListedCamera& camera)
{
    std::string text;
    for (const Holder& holder : holdersOf(deviceNode(camera.place.bus, camera.place.address)))
        text += "; " + holder.name + " (process " + std::to_string(holder.process) + ") has it open";
    return text;
}

bool tryClaim(const ListedCamera& camera)
{
    g_claimed[camera.nIndex] = vqdDeviceOpen(camera.nIndex) == VQD_OK;
    return g_claimed[camera.nIndex];
}

void requireClaim(const ListedCamera& camera)
{
    if (!tryClaim(camera))
        failOn(camera, nameOf(camera) + " cannot be opened" + holdersText(camera));
}

void closeClaimed()
{
    for (int n = 0; n < VQD_MAX_DEVICES; ++n)
        if (std::exchange(g_claimed[n], false))
            vqdDeviceClose(n);
}
