// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What the user wants of which camera.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "worker/publishing.h"

struct PublishWish {
    bool wanted = false;
    Publishing how;
};

struct CameraWish {
    std::string name;                   // for people; may be empty
    std::vector<std::string> settings;  // "offset=5", in the order of the table
    std::optional<PublishWish> publish; // nothing: as all cameras
    bool record = false;                // from the first frame on
    bool show = true;                   // on the page
};

struct Configuration {
    std::map<std::string, CameraWish> cameras; // by serial number or port
    bool showsUnknown = true;                  // also cameras that are not named here
    std::string recordings;                    // the folder for recordings; empty when there is none
    PublishWish publish;                       // of all cameras that have no wish of their own
};

// Whether any camera is to be published, if only one that may come.
bool publishesAny(const Configuration& configuration);

// Whether a text can be a serial number or a port. Both are what a worker takes.
bool isSerialNumber(std::string_view text);
bool isPort(std::string_view text);

// Fails with a usage error that names the line and the key; `file` is for that message. `recordings` is the folder that
// the command line has; empty when it has none.
Configuration configurationFrom(std::string_view text, const std::string& file, const std::string& recordings = "");
