// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What commands that write point clouds have in common on the command line.
#pragma once

#include "host/assignments.h"
#include "host/point_cloud.h"

namespace CLI
{
class App;
}

// Adds --axes.
void addAxes(CLI::App& command, Axes& axes);

// What makes a cloud true to scale, where -s says nothing about it, and then what -s says. Tells people about the
// former.
std::vector<Assignment> cloudSettings(const ListedCamera& camera, const std::vector<std::string>& chosen);
