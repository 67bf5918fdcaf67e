// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The camera's settings by name: what they take, and how they are read and set.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "camera.h"
#include "output.h"

struct Range {
    int least, most;
};

struct Setting {
    const char* name;
    const char* values; // what set takes; null: read only
    Range ranges[3];    // of each number that set takes
    int arguments;      // how many those are, comma-separated
    bool needsFrame;    // known only once a frame has been read
    Json (*get)(int n);
    int (*set)(int n, const int* values); // 1 when the camera took it
    bool ascending = false;               // the numbers must rise
};

std::span<const Setting> allSettings();

// Fails with a usage error for a name that is not known.
const Setting& settingByName(const std::string& name);

// What a setting shall be. Both fail with a usage error for numbers that it does not take.
struct Assignment {
    const Setting* setting;
    std::vector<int> values;
};
Assignment assignmentOf(const Setting& setting, std::vector<int> values);
std::vector<Assignment> parseAssignments(const std::vector<std::string>& texts); // "name=value,value"

// Sends them to a claimed camera. Fails when it or the library refuses one, and as requireTaken() does.
void applySettings(const Camera& camera, std::span<const Assignment> assignments);

// Fails when the camera's image holds another value: some models take every value and keep what they have.
void requireTaken(const Camera& camera, std::span<const Assignment> assignments);

// Those that are not what the camera's image holds.
std::vector<Assignment> differing(const Camera& camera, std::span<const Assignment> assignments);

// All settings; those that need a frame only after one has been read.
Json settingsJson(int n, bool frameRead);

// "300,4000"
std::string settingText(const Json& value);

// A line a setting.
void printSettings(Output& output, const Json& settings);

// "offset=..., ..." for the help.
std::string settingNames();
