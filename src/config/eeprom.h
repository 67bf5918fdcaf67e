// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The persistent part of the parameter image in the camera's EEPROM.
#pragma once

#include <cstdint>

// Reads the EEPROM into 128 bytes. Bytes that do not arrive are 0. Returns false if none came or the signature is
// wrong.
bool ReadEeprom(struct libusb_device_handle* handle, uint8_t* block128);
