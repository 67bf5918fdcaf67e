// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Whether a camera can work with what its EEPROM holds. The doctor, the warnings and everything that writes to an
// EEPROM judge by this one rule.
#pragma once

#include <string>
#include <vector>

#include "VQD_API.h"

#include "host/bus_view.h"

struct Implausible {
    std::string text;   // "the depth range is not plausible: 15000 to 0 mm"
    std::string remedy; // the command that helps, or a sentence
};

std::vector<Implausible> implausibleIn(const Eeprom& eeprom);

// Whether this can be the depth lens of these cameras. The library replaces a lens whose cx is not between 140 and 180.
bool isPlausible(const LensIntrinsic& k);

// "focal length 204.0, 204.0, centre 160.0, 120.0"
std::string lensText(const LensIntrinsic& k);
std::string depthLensText(const Eeprom& eeprom);

// Judges one lens, and appends to `found`. A camera without a colour sensor has zeros for the colour lens.
void judgeDepthLens(std::vector<Implausible>& found, const LensIntrinsic& k);
void judgeColourLens(std::vector<Implausible>& found, const LensIntrinsic& k);
