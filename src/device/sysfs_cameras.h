// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The cameras that the kernel shows in sysfs but libusb's device list lacks. Every camera that was just plugged in is
// one for a moment, because libusb waits for udev's rules. It stays one if no udev events reach the process.
#pragma once

#include <cstdint>

static constexpr int kMostUnlisted = 32;

struct UnlistedCamera {
    uint8_t bus, address;
    int searches; // in a row in which it was missing
};

struct UnlistedCameras {
    int count;
    UnlistedCamera cameras[kMostUnlisted];
};

// Compares sysfs with the device list that is held. `unlisted` holds what the previous search found and is brought up
// to date. Nothing counts as missing if sysfs cannot be read.
void FindUnlisted(UnlistedCameras& unlisted);

// Whether this process may read and write the camera's device node.
bool IsNodeReady(const UnlistedCamera& camera);
