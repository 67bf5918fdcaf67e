// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The axes of clouds, and the settings that clouds need.
#include "cloud_options.h"

#include <algorithm>

#include <CLI/CLI.hpp>

#include "device/base/models.h"

#include "messages.h"

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
    std::vector<std::string> texts;
    const auto add = [&](const std::string& key) {
        if (std::ranges::none_of(chosen, [&](const std::string& text) { return text.starts_with(key + "="); }))
            texts.push_back(key + "=1");
    };
    add("undistortion");
    if (IsHostCorrectedProduct(camera.szDeviceName))
        add("orthogonal");
    std::string told;
    for (const std::string& text : texts)
        told += " " + text;
    if (!told.empty())
        note("so that points are true to scale, with%s; -s overrides", told.c_str());
    texts.insert(texts.end(), chosen.begin(), chosen.end());
    return parseAssignments(texts);
}
