// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The options that commands have in common.
#pragma once

#include <string>

#include "host/whole_files.h"

namespace CLI
{
class App;
}

struct CommonOptions {
    std::string camera;     // index, serial number, port or BUS:ADDRESS, or all; empty when none was chosen
    bool json = false;      // one JSON object instead of lines
    bool force = false;     // replace files
    bool yes = false;       // do not ask
    bool noProfile = false; // do without the host's profile of the camera
    bool quiet = false;     // nothing but warnings and failures
    bool verbose = false;   // each step, too
};

// A process runs one command, so there is one set of them.
extern CommonOptions common;

// Adds the wanted options, and always -q and -v.
enum CommonOption { kCamera = 1, kJson = 2, kForce = 4, kYes = 8, kProfile = 16, kAllCameras = 32 };
void addCommon(CLI::App& command, int options);

// What --force says of files that exist.
Existing existing();
