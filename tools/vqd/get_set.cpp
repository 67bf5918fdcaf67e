// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd get and vqd set: the camera's settings, by name.
#include <algorithm>
#include <memory>

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
    std::vector<std::string> words;
    bool save = false;
};

void show(Output& output, const ListedCamera& camera, const char* command, const std::vector<const Setting*>& settings)
{
    Json json = document(command);
    json["camera"] = identityJson(camera);
    for (const Setting* setting : settings)
        json["settings"][setting->name] = setting->get(camera.nIndex);
    output.finish(json, settingLines(json["settings"]));
}

int get(const Options& options)
{
    std::vector<const Setting*> wanted;
    for (const std::string& name : options.words)
        wanted.push_back(&settingByName(name));
    for (const Setting& setting : allSettings())
        if (options.words.empty() && !setting.needsFrame)
            wanted.push_back(&setting);

    Output output;
    const Cameras cameras;
    const ListedCamera& camera = cameras.choose();
    requireEeprom(camera);
    cameras.loadWithProfile(camera);
    if (std::any_of(wanted.begin(), wanted.end(), [](const Setting* s) { return s->needsFrame; })) {
        const auto frame = std::make_unique<DepthFrame>();
        Stream(camera).read(*frame);
    }
    show(output, camera, "get", wanted);
    return kDone;
}

int set(const Options& options)
{
    const std::vector<Assignment> assignments = parseAssignments(options.words);
    if (options.save)
        requireConfirmable();
    Output output;
    const Cameras cameras;
    const ListedCamera& camera = cameras.chooseToChange();
    cameras.loadWithProfile(camera);
    claim(camera);
    changeSettings(camera, options.save, "save these settings?", [&] { applySettings(camera, assignments); });
    std::vector<const Setting*> changed;
    for (const Assignment& assignment : assignments)
        changed.push_back(assignment.setting);
    show(output, camera, "set", changed);
    if (!options.save)
        note(kNotSaved);
    return kDone;
}

} // namespace

void addGetSet(CLI::App& app, Run& run)
{
    const auto options = std::make_shared<Options>();
    CLI::App* getter = app.add_subcommand("get", "Shows settings");
    getter->add_option("key", options->words, "Settings to show; all when none is named")->type_name("KEY");
    addCommon(*getter, kCamera | kJson | kProfile);
    CLI::App* setter = app.add_subcommand("set", "Changes settings");
    setter->add_option("assignment", options->words, "Settings to change")->type_name("KEY=VALUE")->required();
    setter->add_flag("--save", options->save, "Keep the settings in the camera's EEPROM");
    addForcedSave(*setter);
    addCommon(*setter, kCamera | kJson | kYes | kProfile);
    setter->footer("Example: vqd set depth-range=300,4000 flip-horizontal=1 --save\nSettings:\n" + settingNames());
    getter->footer("Example: vqd get frequency depth-range\nSettings:\n" + settingNames());
    getter->callback([&run, options] { run = [options] { return get(*options); }; });
    setter->callback([&run, options] { run = [options] { return set(*options); }; });
}
