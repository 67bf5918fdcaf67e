// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// One lock a camera, by the place where it is plugged in. The kernel lets one program claim a camera, but a program
// that tries and fails still stops the other's stream. So it looks here first.
#pragma once

#include <optional>
#include <string>

#include "host/bus_view.h"
#include "host/usb_devices.h"

// How this program is called when others ask who has a camera; without this, as the kernel calls it.
void nameLockHolder(const std::string& program);

// Locks the camera at this place until the end of the process. False when another process has it. Where no lock can be
// kept, because there is no folder for it, only the kernel's claim is left, and this is true.
bool lockCamera(const Place& place);

// Which process has the lock of the camera at this place, unless it is this one. Its number is 0 when it did not say.
std::optional<Holder> lockHolder(const Place& place);
