// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The axes of clouds, and the settings that clouds need.
#include "cloud_options.h"

#include <CLI/CLI.hpp>

#include "device/base/models.h"

#include "settings_apply.h"

void addAxes(CLI::App& command, Axes& axes)
{
    command
        .add_option_function<std::string>(
            "--axes", [&axes](const std::string& name) { axes = axesNamed(name); },
            "Axes of point clouds: optical is x right, y down, z ahead; camera is the library's X right, Y up, Z ahead")
        ->check(CLI::IsMember(axesNames()))
        ->default_str(axesNames().front());
}

std::vector<Assignment> cloudSettings(const ListedCamera& camera, const std::vector<std::string>& chosen)
{
    std::vector<std::string> needed = {"undistortion=1"};
    if (IsHostCorrectedProduct(camera.szDeviceName))
        needed.emplace_back("orthogonal=1");
    return neededSettings(needed, "so that points are true to scale", chosen);
}
