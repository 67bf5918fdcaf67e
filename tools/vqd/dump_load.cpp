// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd dump and vqd load: all settings and the lens of a camera, into a JSON file and from it.
#include <memory>
#include <optional>

#include <CLI/CLI.hpp>

#include "cameras.h"
#include "commands.h"
#include "eeprom_change.h"
#include "messages.h"
#include "options.h"
#include "output.h"
#include "settings_apply.h"

namespace
{

struct Options {
    std::string file;
    bool save = false, lens = false;
};

int dump(const Options& options)
{
    if (!options.file.empty())
        requireNewFile(options.file, existing());
    Output output;
    const Cameras cameras;
    const ListedCamera& camera = cameras.choose();
    requireEeprom(camera);
    cameras.loadWithProfile(camera);
    Json json = document("dump");
    json["camera"] = identityJson(camera);
    json["settings"] = settingsJson(camera.nIndex, false);
    json["lens"] = calibrationJson(camera);
    if (options.file.empty())
        output.print(json);
    else
        writeDocument(options.file, json, existing());
    output.finish();
    return kDone;
}

// A lens belongs to one camera, but settings may go to others.
void compareCameras(const ListedCamera& camera, const Json& json, const Options& options)
{
    const Json from = json.value("camera", Json::object());
    const Json serial = from.is_object() && from.contains("serial") ? from["serial"] : Json();
    if (camera.known == Known::read && serial == camera.szSerialNumber)
        return;
    const std::string text = options.file + " comes from " +
                             (serial.is_string() ? "camera " + serial.get<std::string>() : "an unknown camera") +
                             "; the serial number here is " + camera.szSerialNumber;
    if (options.lens && !common.force)
        throw Failure(kFailed, text + "; --force writes its lens all the same");
    if (serial.is_string())
        note("%s", text.c_str());
}

void show(const ListedCamera& camera, const Options& options, bool saved, Output& output)
{
    Json json = document("load");
    json["camera"] = identityJson(camera);
    json["settings"] = settingsJson(camera.nIndex, false);
    if (options.lens)
        json["lens"] = calibrationJson(camera);
    json["saved"] = saved;
    output.finish(json, settingLines(json["settings"]));
}

int load(const Options& options)
{
    const Json json = readDocument(options.file, "dump");
    const std::vector<Assignment> assignments = assignmentsFrom(json, options.file);
    std::optional<Calibration> lens;
    if (options.lens)
        lens = calibrationToWrite(json.value("lens", Json::object()), options.file);
    const bool save = options.save || lens;
    if (save)
        requireConfirmable();
    Output output;
    const Cameras cameras;
    const ListedCamera& camera = cameras.chooseToChange();
    compareCameras(camera, json, options);
    cameras.loadWithProfile(camera);
    claim(camera);
    changeSettings(camera, save, lens ? "save these settings and this lens?" : "save these settings?", [&] {
        // Only what differs is sent, because not every model takes its own factory values back.
        applySettings(camera, differing(camera, assignments));
        requireTaken(camera, assignments);
        if (lens)
            putIntoImage(camera.nIndex, *lens);
    });
    show(camera, options, save, output);
    if (!save)
        note(kNotSaved);
    return kDone;
}

} // namespace

void addDumpLoad(CLI::App& app, Run& run)
{
    const auto options = std::make_shared<Options>();
    CLI::App* dumper = app.add_subcommand("dump", "Writes all settings and the lens as JSON");
    dumper->add_option("-o,--output", options->file, "File to write; standard output when not given")
        ->type_name("FILE");
    addCommon(*dumper, kCamera | kJson | kForce | kProfile);
    dumper->footer("Example: vqd dump -o camera.json");
    CLI::App* loader = app.add_subcommand("load", "Applies the settings of a dump");
    loader->add_option("file", options->file, "File that vqd dump wrote; - for standard input")
        ->type_name("FILE")
        ->required();
    loader->add_flag("--save", options->save, "Keep the settings in the camera's EEPROM");
    loader->add_flag("--lens", options->lens, "Also write the lens, which belongs to one camera; implies --save");
    loader->add_flag("--force", common.force,
                     "Write the lens even if it is another camera's or not plausible, and save even shortly "
                     "after another save");
    addCommon(*loader, kCamera | kJson | kYes | kProfile);
    loader->footer("The whole file is checked before the camera is touched.\n"
                   "Example: vqd load camera.json --save");
    dumper->callback([&run, options] { run = [options] { return dump(*options); }; });
    loader->callback([&run, options] { run = [options] { return load(*options); }; });
}
