// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The camera's settings by name, for get, set and grab.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "camera.h"

struct Setting {
    const char* name;
    const char* values; // what set takes; null: read only
    int arguments;      // numbers that set takes, comma-separated
    bool needsFrame;    // known only once a frame has been read
    std::string (*get)(int n);
    int (*set)(int n, const int* values); // 1 when the camera took it
};

std::span<const Setting> allSettings();

// Fails with a usage error for a name that is not known.
const Setting& settingByName(const std::string& name);

// One "name=value" of a command line, checked for form.
struct Assignment {
    const Setting* setting;
    std::vector<int> values;
};
Assignment parseAssignment(const std::string& text);

// Sends it; fails when the camera or the library refuses.
void apply(const Camera& camera, const Assignment& assignment);

// "offset=..., ..." for the help.
std::string settingNames();
