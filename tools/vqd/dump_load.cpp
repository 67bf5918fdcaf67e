// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd dump and vqd load: all settings and the lens of a camera as a JSON file, out and in.
#include <cmath>
#include <memory>
#include <optional>

#include <CLI/CLI.hpp>

#include "commands.h"
#include "common.h"
#include "eeprom_change.h"
#include "host/failure.h"
#include "host/lens_json.h"
#include "host/settings.h"

namespace
{

struct Options {
    std::string file;
    bool save = false, lens = false;
};

int dump(const Options& options)
{
    if (!options.file.empty())
        requireNewFile(options.file);
    Output output;
    const Session session;
    const Camera& camera = session.choose();
    requireEeprom(camera);
    session.loadAlone(camera);
    Json json = document("dump");
    json["camera"] = identityJson(camera);
    json["settings"] = settingsJson(camera.nIndex, false);
    json["lens"] = calibrationJson(camera);
    if (options.file.empty())
        output.print(json);
    else
        writeJson(options.file, json);
    output.finish();
    return kDone;
}

// A number or several; none where there is anything else.
std::vector<int> numbersIn(const Json& json)
{
    constexpr double kMost = 1e6; // far beyond what any setting takes
    std::vector<int> numbers;
    for (const Json& element : json.is_array() ? json : Json::array({json})) {
        if (!element.is_number_integer() || std::abs(element.get<double>()) > kMost)
            return {};
        numbers.push_back(element.get<int>());
    }
    return numbers;
}

// Settings that can only be read are left out.
std::vector<Assignment> assignmentsFrom(const Json& json, const std::string& file)
{
    if (!json.contains("settings") || !json["settings"].is_object())
        throw Failure(kUsage, file + ": \"settings\" is missing or no object");
    std::vector<Assignment> assignments;
    for (const Setting& setting : allSettings()) // in their order, whatever that of the file
        if (setting.set != nullptr && json["settings"].contains(setting.name))
            assignments.push_back(assignmentOf(setting, numbersIn(json["settings"][setting.name])));
    for (const auto& [name, unused] : json["settings"].items())
        settingByName(name);
    return assignments;
}

// A lens belongs to one camera. Settings may go to others.
void compareCameras(const Camera& camera, const Json& json, const Options& options)
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

void show(const Camera& camera, const Options& options, bool saved, Output& output)
{
    Json json = document("load");
    json["camera"] = identityJson(camera);
    json["settings"] = settingsJson(camera.nIndex, false);
    if (options.lens)
        json["lens"] = calibrationJson(camera);
    json["saved"] = saved;
    if (common.json)
        output.print(json);
    else
        printSettings(output, json["settings"]);
    output.finish();
}

int load(const Options& options)
{
    const Json json = readDocument(options.file, "dump");
    const std::vector<Assignment> assignments = assignmentsFrom(json, options.file);
    std::optional<Calibration> lens;
    if (options.lens)
        lens = calibrationFrom(json.value("lens", Json::object()), options.file);
    const bool save = options.save || lens;
    if (save)
        requireConfirmable();
    Output output;
    const Session session;
    const Camera& camera = session.chooseToChange();
    compareCameras(camera, json, options);
    session.loadAlone(camera);
    claim(camera);
    changeSettings(camera, save, lens ? "save these settings and this lens?" : "save these settings?", [&] {
        // Not those that are there already: not every model takes its own factory values back.
        applySettings(camera, differing(camera, assignments));
        requireTaken(camera, assignments);
        if (lens)
            store(camera.nIndex, *lens);
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
    CLI::App* dumper = app.add_subcommand("dump", "Writes all settings, switches and the lens as JSON");
    dumper->add_option("-o,--output", options->file, "File; without it standard output")->type_name("FILE");
    addCommon(*dumper, kCamera | kJson | kForce);
    dumper->footer("Example: vqd dump -o camera.json");
    CLI::App* loader = app.add_subcommand("load", "Applies the settings of a dump");
    loader->add_option("file", options->file, "What vqd dump wrote; - for standard input")
        ->type_name("FILE")
        ->required();
    loader->add_flag("--save", options->save, "Keep the settings in the camera's EEPROM");
    loader->add_flag("--lens", options->lens, "Also the lens, which belongs to one camera; implies --save");
    loader->add_flag("--force", common.force, "Also the lens of another camera, or one that is not plausible");
    addCommon(*loader, kCamera | kJson | kYes);
    loader->footer("The file is checked as a whole before the camera is touched.\n"
                   "Example: vqd load camera.json --save");
    dumper->callback([&run, options] { run = [options] { return dump(*options); }; });
    loader->callback([&run, options] { run = [options] { return load(*options); }; });
}
