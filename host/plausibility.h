// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Whether a camera can work with what its EEPROM holds: the one judgement of the doctor, and of every command that
// writes.
#pragma once

#include <string>
#include <vector>

#include "VQD_API.h"

#include "host/bus_view.h"

struct Implausible {
    std::string text;   // "the depth range is not plausible: 15000 to 0 mm"
    std::string remedy; // a command
};

std::vector<Implausible> implausibleIn(const Eeprom& eeprom);

// Whether it can be a depth lens of these cameras. The library replaces one whose cx is not between 140 and 180.
bool isPlausible(const LensIntrinsic& k);

// "focal length 204.0, 204.0, centre 160.0, 120.0"
std::string depthLensText(const Eeprom& eeprom);

// Of each lens alone, appended to `found`. A camera without a colour camera has zeros for its lens.
void judgeDepthLens(std::vector<Implausible>& found, const LensIntrinsic& k);
void judgeColourLens(std::vector<Implausible>& found, const LensIntrinsic& k);

// Fails with a usage error when something was found, unless --force.
void refuseImplausible(const std::string& file, const std::vector<Implausible>& found);
