// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What a recording says of its camera once: who it is, and the tables with which its frames are made.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/bytes.h"
#include "host/listed_camera.h"

struct CameraFacts {
    std::string serial; // empty when it is not known
    std::string product, vendor, usb;
    bool hostCorrected = false;
    Bytes eeprom;                // empty when it cannot be read
    Bytes orthogonal;            // the radial table as the camera keeps it; empty when it cannot be read
    std::vector<int32_t> fppn;   // as used; empty where the camera applies it
    std::vector<double> factors; // of orthogonal correction, as used; empty when they follow from `orthogonal`
    std::string profile;         // the text of this machine's profile, if it is in use
};

// The radial table of a claimed camera that does not grab; empty when it cannot be read.
Bytes readOrthogonalTable(const ListedCamera& camera);

// Of a camera whose tables are loaded, with the radial table that was read before.
CameraFacts factsOf(const ListedCamera& camera, const Bytes& orthogonal);
