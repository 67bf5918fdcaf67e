// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd info: everything that one camera tells about itself.
#include <memory>

#include <CLI/CLI.hpp>

#include "host/assignments.h"
#include "host/formatted.h"
#include "host/lens_json.h"

#include "cameras.h"
#include "commands.h"
#include "options.h"
#include "output.h"

// A line for each member; the names of nested members are joined by dots.
static std::string treeText(const Json& json, const std::string& prefix)
{
    std::string text;
    for (const auto& [name, value] : json.items())
        text += value.is_object() ? treeText(value, prefix + name + ".")
                                  : formatted("%-28s %s\n", (prefix + name).c_str(), settingText(value).c_str());
    return text;
}

static int info()
{
    Output output;
    const Cameras cameras;
    const ListedCamera& camera = cameras.choose();
    requireEeprom(camera);
    cameras.loadWithProfile(camera);
    const auto frame = std::make_unique<DepthFrame>();
    Stream(camera).read(*frame); // it brings temperature and logic version
    Json json = document("info");
    json["camera"] = identityJson(camera);
    json["settings"] = settingsJson(camera.nIndex, true);
    json["lens"] = calibrationJson(camera);
    output.finish(json,
                  treeText(json["camera"], "") + treeText(json["settings"], "") + treeText(json["lens"], "lens."));
    return kDone;
}

void addInfo(CLI::App& app, Run& run)
{
    CLI::App* command = app.add_subcommand("info", "Shows identity, settings, lens, temperature and logic version");
    addCommon(*command, kCamera | kJson | kProfile);
    command->footer("It grabs one frame, which brings temperature and logic version.\n"
                    "Example: vqd info -c 1 --json | jq .settings.temperature");
    command->callback([&run] { run = info; });
}
