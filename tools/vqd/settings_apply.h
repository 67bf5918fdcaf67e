// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Settings on their way to a claimed camera, and on their way to people.
#pragma once

#include "host/assignments.h"

// Sends them one by one, and compares what the camera then has. A signal ends it between two.
void applySettings(const ListedCamera& camera, std::span<const Assignment> assignments);

// A line for each setting.
std::string settingLines(const Json& settings);
