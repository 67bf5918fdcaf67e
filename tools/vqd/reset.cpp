// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd reset: the settings in the EEPROM as they were at the factory. Serial number, lens and tables stay.
#include <algorithm>

#include <CLI/CLI.hpp>

#include "commands.h"
#include "common.h"
#include "config/param_image.h"
#include "host/eeprom_fields.h"
#include "host/failure.h"

static Eeprom withFactorySettings(const Eeprom& eeprom)
{
    Eeprom factory{};
    FillFactoryImage(factory.data());
    Eeprom changed = eeprom;
    for (const EepromField& field : eepromFields(eeprom))
        if (field.isSetting)
            std::copy_n(factory.begin() + field.offset, field.bytes, changed.begin() + field.offset);
    return changed;
}

static int reset()
{
    requireConfirmable();
    Output output;
    const Session session;
    const Camera& camera = session.chooseToChange();
    const Eeprom after = withFactorySettings(camera.eeprom);
    claim(camera);
    changeEeprom(camera, "put all settings back to the factory's?", Unreadable::refuse, [&] {
        if (vqdEEPROM_ParameterData_Save(camera.nIndex, after.data()) != 1)
            failOn(camera, "the EEPROM was not written");
    });
    // The camera works with the image that it was sent last.
    if (vqdWriteToDevice(camera.nIndex, stCamParam[camera.nIndex].image) != 1)
        failOn(camera, "the settings are saved but were not sent to the camera");
    showChange(output, "reset", camera, after);
    return kDone;
}

void addReset(CLI::App& app, Run& run)
{
    CLI::App* command = app.add_subcommand("reset", "Puts the settings in the EEPROM back to the factory's");
    addCommon(*command, kCamera | kJson | kYes);
    command->footer("Serial number, lens, depth gap and tables stay.\nExample: vqd reset -c 24061100000001");
    command->callback([&run] { run = reset; });
}
