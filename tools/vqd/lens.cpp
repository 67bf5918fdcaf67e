// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd lens: the camera's three calibration sets, shown as JSON and written from JSON.
#include <memory>
#include <optional>

#include <CLI/CLI.hpp>

#include "host/eeprom_store.h"

#include "cameras.h"
#include "commands.h"
#include "eeprom_change.h"
#include "messages.h"
#include "options.h"

static int lens(const std::string& file)
{
    std::optional<Calibration> wanted;
    if (!file.empty()) {
        wanted = calibrationToWrite(readDocument(file, "lens"), file);
        requireConfirmable();
    }
    Output output;
    const Cameras cameras;
    const ListedCamera& camera = wanted ? cameras.chooseToChange() : cameras.choose();
    if (!wanted)
        requireEeprom(camera);
    else
        changeEeprom(camera, "replace its lens?", Unreadable::refuse, [&](const EepromRead& before) {
            putIntoImage(camera.nIndex, *wanted);
            saveWithPause(camera, eepromOfImage(camera), before);
        });
    Json json = document("lens");
    json.update(calibrationJson(camera));
    output.print(json);
    output.finish();
    return kDone;
}

void addLens(CLI::App& app, Run& run)
{
    const auto file = std::make_shared<std::string>();
    CLI::App* command = app.add_subcommand("lens", "Shows the calibration of both lenses and the transform, as JSON");
    command->add_option("--set", *file, "Write the sets in this JSON file to the camera's EEPROM; - for standard input")
        ->type_name("FILE");
    command->add_flag("--force", common.force,
                      "Write a lens even if it is not plausible, and even shortly after another save");
    addCommon(*command, kCamera | kJson | kYes);
    command->footer("Example: vqd lens >lens.json; vqd lens --set lens.json\n"
                    "Values are rounded to what the EEPROM can hold, and shown as it holds them. Only the first four "
                    "numbers of the transform fit into it.");
    command->callback([&run, file] { run = [file] { return lens(*file); }; });
}
