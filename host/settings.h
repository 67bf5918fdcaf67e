// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The one table of the camera's settings: what each is called, which values it takes, and how it is read and set. The
// tool's commands, its help and every page or program that shows settings are made from it.
#pragma once

#include <span>
#include <string>

#include "host/json.h"

// A value with a meaning of its own. A choice with models is for these models only; a model that has no choice at all
// keeps the value that it has.
struct Choice {
    int value;
    const char* meaning;
    std::span<const char* const> models = {};
};

enum class ValueType { integer, number, text };

// One of the values of a setting. The limits are those of integers; `choices` names some or all of the integers.
struct SettingValue {
    const char* name;
    int least = 0, most = 0;
    std::span<const Choice> choices = {};
    ValueType type = ValueType::integer;
};

struct Setting {
    const char* name;  // "depth-range": the key in commands and files
    const char* label; // "Depth range": for people
    const char* unit;  // "mm"; may be empty
    const char* group; // "Filters": settings that belong together
    std::span<const SettingValue> values;
    Json (*get)(int n);                   // a number or a text, or an array of several values
    int (*set)(int n, const int* values); // 1 when the camera took them; null for a setting that can only be read
    bool ascending = false;               // each value must be below the next
    bool needsFrame = false;              // known only after a frame has been read
};

std::span<const Setting> allSettings();

// Fails with a usage error for an unknown name.
const Setting& settingByName(const std::string& name);

// "-255 to 255", "1 or 0", "MIN,MAX in mm: ...", or "read only"
std::string valuesText(const Setting& setting);

// The table itself: an array with an object for each setting.
Json settingsTable();

// A line for each setting with what it takes, for help texts.
std::string settingNames();
