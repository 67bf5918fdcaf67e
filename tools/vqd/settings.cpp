// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd settings: the table of settings itself, for people and for programs that offer settings.
#include <CLI/CLI.hpp>

#include "host/formatted.h"
#include "host/settings.h"

#include "commands.h"
#include "options.h"
#include "output.h"

static int settings()
{
    Output output;
    Json json = document("settings");
    json["settings"] = settingsTable();
    std::string text;
    for (const Setting& setting : allSettings())
        text += formatted("%-17s  %-35s  %s\n", setting.name, setting.label, valuesText(setting).c_str());
    output.finish(json, text);
    return kDone;
}

void addSettings(CLI::App& app, Run& run)
{
    CLI::App* command = app.add_subcommand("settings", "Lists the settings and the values that they take");
    addCommon(*command, kJson);
    command->footer("No camera is needed.\nExample: vqd settings --json | jq -r '.settings[].name'");
    command->callback([&run] { run = settings; });
}
