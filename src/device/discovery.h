// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Finding cameras on the bus and filling the slots.
#pragma once

#include "device/base/device_state.h"

// Opens `device` for slot n and closes the handle that the slot had. Returns false after "Error in openning device."
bool OpenIntoSlot(int n, libusb_device* device);

// Puts an opened handle into slot n and closes the handle that the slot had.
void FillSlot(int n, libusb_device* device, libusb_device_handle* handle);

// Closes the slot's handle, if any, and clears its fields except pDevice. Causes no USB traffic.
void EmptySlot(int n);
