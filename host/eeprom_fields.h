// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The 128 bytes of a camera's EEPROM, field by field in physical units.
#pragma once

#include <string>
#include <vector>

#include "eeprom_change.h"

struct EepromField {
    std::string name;
    int offset, bytes;
    const char* unit;  // may be empty
    bool isSetting;    // goes back to the factory value with vqd reset
    std::string value; // as text
};

// All of them in order; every byte is in one.
std::vector<EepromField> eepromFields(const Eeprom& eeprom);

struct EepromDifference {
    EepromField before, after;
};
std::vector<EepromDifference> differences(const Eeprom& before, const Eeprom& after);

// A line each, or the member "differences".
void printDifferences(Output& output, const std::vector<EepromDifference>& differences);
Json differencesJson(const std::vector<EepromDifference>& differences);

// What a command has made of the camera's EEPROM.
void showChange(Output& output, const char* command, const Camera& camera, const Eeprom& after);
