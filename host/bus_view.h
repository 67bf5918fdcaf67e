// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Cameras as libusb shows them beside the library: where they are, and all that their EEPROM holds. The library takes
// an answer that is cut short for a whole one, and factory settings where there is no answer; it prints a line and its
// results tell no difference.
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
    bool isSigned() const; // of a whole answer
};

// On a device that the caller has opened.
EepromRead readEeprom(libusb_device_handle* handle);

struct Place {
    int bus, address;
    std::string port; // "1-2.3": port 3 of the hub at port 2 of bus 1; empty when it is not known

    bool operator==(const Place& other) const { return bus == other.bus && address == other.address; }
};

// Also those cameras that cannot be opened, in the library's order.
std::vector<Place> cameraPlaces();

// Reads from the camera at this place, in a context of its own. Nothing is claimed.
EepromRead readEeprom(const Place& place);
