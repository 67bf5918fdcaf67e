// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd info: everything that one camera tells of itself.
#include <memory>

#include <CLI/CLI.hpp>

#include "commands.h"
#include "common.h"
#include "host/failure.h"
#include "host/lens_json.h"
#include "host/settings.h"

// Names of nested members joined by dots, a line each.
static void printTree(Output& output, const Json& json, const std::string& prefix)
{
    for (const auto& [name, value] : json.items()) {
        if (value.is_object())
            printTree(output, value, prefix + name + ".");
        else
            output.print("%-28s %s\n", (prefix + name).c_str(), settingText(value).c_str());
    }
}

static int info()
{
    Output output;
    const Session session;
    const Camera& camera = session.choose();
    requireEeprom(camera);
    session.loadAlone(camera);
    const auto frame = std::make_unique<Frame>();
    Stream(camera).read(*frame); // tells temperature and logic version
    Json json = document("info");
    json["camera"] = identityJson(camera);
    json["settings"] = settingsJson(camera.nIndex, true);
    json["lens"] = calibrationJson(camera);
    if (common.json) {
        output.print(json);
    } else {
        printTree(output, json["camera"], "");
        printTree(output, json["settings"], "");
        printTree(output, json["lens"], "lens.");
    }
    output.finish();
    return kDone;
}

void addInfo(CLI::App& app, Run& run)
{
    CLI::App* command =
        app.add_subcommand("info", "Shows identity, settings, switches, lens, temperature and logic version");
    addCommon(*command, kCamera | kJson);
    command->footer("Grabs one frame, which tells temperature and logic version.\n"
                    "Example: vqd info -c 1 --json | jq .settings.temperature");
    command->callback([&run] { run = info; });
}
