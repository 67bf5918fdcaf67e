// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd get and vqd set: the camera's settings, by name.
#include <algorithm>
#include <memory>

#include <CLI/CLI.hpp>

#include "camera.h"
#include "commands.h"
#include "common.h"
#include "eeprom_change.h"
#include "exit_codes.h"
#include "interrupt.h"
#include "output.h"
#include "settings.h"

namespace
{

struct Options {
    std::vector<std::string> words;
    bool save = false;
};

void print(Output& output, int n, const Setting& setting)
{
    output.print("%-17s %s\n", setting.name, setting.get(n).c_str());
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
    const Session session;
    const Camera& camera = session.choose();
    if (std::any_of(wanted.begin(), wanted.end(), [](const Setting* s) { return s->needsFrame; })) {
        const auto frame = std::make_unique<Frame>();
        Stream(camera).read(*frame);
    }
    for (const Setting* setting : wanted)
        print(output, camera.nIndex, *setting);
    output.finish();
    return kDone;
}

int set(const Options& options)
{
    std::vector<Assignment> assignments;
    for (const std::string& word : options.words)
        assignments.push_back(parseAssignment(word));

    Output output;
    if (options.save)
        requireConfirmable();
    const Session session;
    const Camera& camera = session.chooseToChange();
    session.loadAlone(camera);
    claim(camera);
    const auto apply_all = [&] {
        for (const Assignment& assignment : assignments) {
            endIfInterrupted();
            apply(camera, assignment);
        }
    };
    if (options.save)
        changeEeprom(camera, "save these settings?", Unreadable::refuse, [&] {
            apply_all();
            saveImage(camera);
        });
    else
        apply_all();
    for (const Assignment& assignment : assignments)
        print(output, camera.nIndex, *assignment.setting);
    output.finish();
    if (!options.save)
        note("not saved; the next program that lists the camera has its stored settings again (--save keeps)");
    return kDone;
}

} // namespace

void addGetSet(CLI::App& app, Run& run)
{
    const auto options = std::make_shared<Options>();
    CLI::App* getter = app.add_subcommand("get", "Shows settings");
    getter->add_option("key", options->words, "Settings; all when none is named")->type_name("KEY");
    CLI::App* setter = app.add_subcommand("set", "Changes settings");
    setter->add_option("assignment", options->words, "What to change")->type_name("KEY=VALUE")->required();
    setter->add_flag("--save", options->save, "Keep the settings in the camera's EEPROM");
    addCommon(*getter, kCamera | kJson);
    addCommon(*setter, kCamera | kYes);
    setter->footer("Example: vqd set depth-range=300,4000 flip-horizontal=1 --save\nSettings:\n" + settingNames());
    getter->footer("Example: vqd get frequency depth-range\nSettings:\n" + settingNames());
    getter->callback([&run, options] { run = [options] { return get(*options); }; });
    setter->callback([&run, options] { run = [options] { return set(*options); }; });
}
