// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd eeprom: the 128 bytes of a camera's EEPROM, into a file, from a file, and compared.
#include <algorithm>
#include <memory>

#include <CLI/CLI.hpp>

#include "config/param_image.h"
#include "host/eeprom_fields.h"
#include "host/eeprom_store.h"

#include "cameras.h"
#include "commands.h"
#include "eeprom_change.h"
#include "messages.h"
#include "options.h"
#include "output.h"

namespace
{

struct Options {
    std::string file, other;
};

Eeprom eepromFile(const std::string& file)
{
    const Bytes bytes = readFile(file, VQD_EEPROM_BYTES);
    if (bytes[kSignature] != kSignatureValue)
        throw Failure(kUsage, file + ": byte 4 is not 0x81, so this is not the EEPROM of a camera");
    Eeprom eeprom;
    std::copy(bytes.begin(), bytes.end(), eeprom.begin());
    return eeprom;
}

Eeprom storedEeprom()
{
    const Cameras cameras;
    const ListedCamera& camera = cameras.choose();
    requireEeprom(camera);
    return camera.eeprom;
}

int backup(const Options& options)
{
    requireNewFile(options.file, existing());
    Output output;
    const Cameras cameras;
    const ListedCamera& camera = cameras.choose();
    requireEeprom(camera);
    writeFile(options.file, camera.eeprom, existing());
    Json json = document("eeprom-backup");
    json["camera"] = identityJson(camera);
    json["file"] = options.file;
    output.finish(json, options.file + ": the EEPROM of camera " + camera.szSerialNumber + '\n');
    return kDone;
}

int restore(const Options& options)
{
    const Eeprom eeprom = eepromFile(options.file);
    refuseImplausible(options.file, implausibleIn(eeprom));
    requireConfirmable();
    Output output;
    const Cameras cameras;
    const ListedCamera& camera = cameras.chooseToChange();
    if (!common.force && camera.known == Known::read && serialOf(eeprom) != camera.szSerialNumber)
        throw Failure(kFailed,
                      options.file + " belongs to camera " + serialOf(eeprom) + "; --force writes it all the same");
    changeEeprom(camera, "replace its whole EEPROM?", Unreadable::replace,
                 [&](const EepromRead& before) { saveWithPause(camera, eeprom, before); });
    showChange(output, "eeprom-restore", camera, eeprom);
    return kDone;
}

int diff(const Options& options)
{
    const Eeprom before = eepromFile(options.file);
    Output output;
    const Eeprom after = options.other.empty() ? storedEeprom() : eepromFile(options.other);
    const std::vector<EepromDifference> found = differences(before, after);
    Json json = document("eeprom-diff");
    json["equal"] = found.empty();
    showDifferences(output, json, found);
    return found.empty() ? kDone : kVerification;
}

} // namespace

void addEeprom(CLI::App& app, Run& run)
{
    const auto options = std::make_shared<Options>();
    CLI::App* command =
        app.add_subcommand("eeprom", "The 128 bytes that a camera keeps: settings, serial number, lens");
    command->require_subcommand(1);
    const struct {
        const char* name;
        const char* description;
        int common;
        int (*work)(const Options&);
        const char* example;
    } kWays[] = {
        {"backup", "Copies the EEPROM into a file", kCamera | kJson | kForce, backup, "vqd eeprom backup before.bin"},
        {"restore", "Writes a file into the EEPROM", kCamera | kJson | kYes, restore,
         "vqd eeprom restore before.bin -c 24061100000001"},
        {"diff", "Compares two files, or a file with the camera; the exit code is 6 when they differ", kCamera | kJson,
         diff, "vqd eeprom diff before.bin"},
    };
    for (const auto& way : kWays) {
        CLI::App* sub = command->add_subcommand(way.name, way.description);
        sub->add_option("file", options->file, "A file of 128 bytes")->type_name("FILE")->required();
        addCommon(*sub, way.common);
        sub->footer(std::string("Example: ") + way.example);
        sub->callback([&run, options, work = way.work] { run = [options, work] { return work(*options); }; });
    }
    command->get_subcommand("restore")->add_flag("--force", common.force,
                                                 "Write the file even if it is another camera's or not plausible, "
                                                 "and even shortly after another save");
    command->get_subcommand("diff")
        ->add_option("other", options->other, "A second file; the camera when not given")
        ->type_name("FILE");
    command->footer("Example: vqd eeprom backup before.bin; vqd eeprom diff before.bin");
}
