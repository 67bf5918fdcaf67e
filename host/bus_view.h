// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Cameras as libusb shows them without the library: where they are plugged in, and what their EEPROM holds. The
// library's own reading is not enough, because its results do not tell a whole answer from a short one, or the EEPROM's
// settings from the factory settings that it substitutes.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "VQD_API.h"

using Eeprom = std::array<uint8_t, VQD_EEPROM_BYTES>;

struct EepromRead {
    int moved = 0; // bytes, or libusb's negative error
    Eeprom bytes{};

    bool whole() const { return moved == VQD_EEPROM_BYTES; }
    bool isSigned() const; // to be asked of a whole answer
};

// Reads from a device that the caller has opened.
EepromRead readEeprom(libusb_device_handle* handle);

struct Place {
    int bus, address;
    std::string port; // "1-2.3" is port 3 of the hub at port 2 of bus 1; empty when unknown

    bool operator==(const Place& other) const { return bus == other.bus && address == other.address; }
};

// All cameras on the bus in the library's order, also those that cannot be opened.
std::vector<Place> cameraPlaces();

// Reads from the camera at this place, with a libusb context of its own and without claiming the camera.
EepromRead readEeprom(const Place& place);
