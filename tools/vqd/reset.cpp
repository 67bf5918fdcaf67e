// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd reset: puts the settings in the EEPROM back to the factory's. Serial number, lens and tables stay.
#include <CLI/CLI.hpp>

#include "cameras.h"
#include "commands.h"
#include "eeprom_change.h"
#include "messages.h"
#include "options.h"

static int reset()
{
    requireConfirmable();
    Output output;
    const Cameras cameras;
    const ListedCamera& camera = cameras.chooseToChange();
    const Eeprom after = withFactorySettings(camera.eeprom);
    claim(camera);
    changeEeprom(camera, "put all settings back to the factory's?", Unreadable::refuse,
                 [&](const EepromRead& before) { saveWithPause(camera, after, before); });
    // The camera does not look at its EEPROM: it works with the image that was sent last.
    if (vqdWriteToDevice(camera.nIndex, stCamParam[camera.nIndex].image) != 1)
        failOn(camera, "the settings are saved, but they could not be sent to the camera");
    showChange(output, "reset", camera, after);
    return kDone;
}

void addReset(CLI::App& app, Run& run)
{
    CLI::App* command = app.add_subcommand("reset", "Puts the settings in the EEPROM back to the factory's");
    addCommon(*command, kCamera | kJson | kYes);
    addForcedSave(*command);
    command->footer("Serial number, lens, depth gap and tables stay.\nExample: vqd reset -c 24061100000001");
    command->callback([&run] { run = reset; });
}
