// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The 128 bytes of a camera's EEPROM, field by field and in physical units.
#pragma once

#include <string>
#include <vector>

#include "host/bus_view.h"
#include "host/json.h"

struct EepromField {
    std::string name;
    int offset, bytes;
    const char* unit;  // may be empty
    bool isSetting;    // goes back to its factory value on a reset
    std::string value; // as text
};

// All fields in order of offset. Every byte belongs to one.
std::vector<EepromField> eepromFields(const Eeprom& eeprom);

struct EepromDifference {
    EepromField before, after;
};
std::vector<EepromDifference> differences(const Eeprom& before, const Eeprom& after);

// An array of objects.
Json differencesJson(const std::vector<EepromDifference>& differences);

// Its serial number, 14 digits.
std::string serialOf(const Eeprom& eeprom);

// The same EEPROM with its settings as at the factory. Serial number, lens, transform and unnamed bytes stay.
Eeprom withFactorySettings(const Eeprom& eeprom);
