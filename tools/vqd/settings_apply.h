// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Settings on their way to a claimed camera, and on their way to people.
#pragma once

#include "host/assignments.h"

// Sends them one by one, and compares what the camera then has. A signal ends it between two.
void applySettings(const ListedCamera& camera, std::span<const Assignment> assignments);

// What a command needs, as "key=value", where -s says nothing about it, and then what -s says. Tells people about the
// former.
std::vector<Assignment> neededSettings(const std::vector<std::string>& needed, const char* why,
                                       const std::vector<std::string>& chosen);

// A line for each setting.
std::string settingLines(const Json& settings);
