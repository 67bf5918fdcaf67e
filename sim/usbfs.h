// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The dialogue with one opener of a device node: ioctls of usbfs as umockdev hands them over, answered from a UsbPort.
#pragma once

#include <cstdint>

#include <umockdev.h>

#include "usb_port.h"

namespace sim
{

struct UsbfsDevice {
    UsbPort& port;
    unsigned address;
    uint32_t capabilities;
};

// Answers the client's pending ioctl, always and at once: a client that waits for an answer can not be interrupted.
void answerIoctl(UMockdevIoctlClient* client, UsbfsDevice device, TimeUs now);

} // namespace sim
