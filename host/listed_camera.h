// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A camera as a listing found it: what the library tells, where it is plugged in, and what its EEPROM holds.
#pragma once

#include <string>
#include <vector>

#include "VQD_API.h"

#include "host/bus_view.h"
#include "host/failure.h"
#include "host/json.h"

// How much is known of a camera's EEPROM. Unless it was read, the library works with factory settings or with zeros.
enum class Known { read, notSigned, notRead };

// The serial number is "unknown" unless the EEPROM was read.
struct ListedCamera : DevInfo {
    Place place;
    Known known;
    Eeprom eeprom;
};

// "03a4:871a"
std::string usbIds(const DevInfo& camera);

// "001:007", which lsusb -s accepts
std::string busAddress(const ListedCamera& camera);

// "camera 0 at 1-2.3"
std::string nameOf(const ListedCamera& camera);

// Index, serial number, names, ids, place, and the host's profile that is in use; what is not known is null.
Json identityJson(const ListedCamera& camera);

// Fails when the camera is no longer on the bus.
void requirePresent(const ListedCamera& camera, const std::string& message);

// Fails with the message, as lost when the camera is no longer on the bus.
[[noreturn]] void failOn(const ListedCamera& camera, const std::string& message);

// Fails unless the EEPROM was read, for callers that would show or use the library's substitute.
void requireEeprom(const ListedCamera& camera);

// Sentences about an EEPROM that the library had to substitute, or that holds implausible values.
std::vector<std::string> eepromWarnings(const ListedCamera& camera);
