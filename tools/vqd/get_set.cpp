// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd get and vqd set: the camera's settings, by name.
#include <algorithm>
#include <memory>

#include <CLI/CLI.hpp>

#include "camera.h"
#include "commands.h"
#include "exit_codes.h"
#include "interrupt.h"
#include "output.h"
#include "settings.h"

namespace
{

struct Options {
    std::vector<std::string> words;
    std::string camera;
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
    catchInterrupts();
    const Session session;
    const DevInfo& camera = session.choose(options.camera);
    if (std::any_of(wanted.begin(), wanted.end(), [](const Setting* s) { return s->needsFrame; })) {
        const auto frame = std::make_unique<Frame>();
        Stream(camera).read(*frame);
    }
    for (const Setting* setting : wanted)
        print(output, camera.nIndex, *setting);
    output.finish();
    return kDone;
}

// Keeps the image's persistent part in the EEPROM. A camera does not start to capture by itself.
void save(int n)
{
    unsigned char image[VQD_IMAGE_BYTES];
    constexpr int kCapture = 11;
    if (vqdParameterData_Load(n, image) != 1)
        throw Failure(kFailed, "the settings could not be read");
    image[kCapture] = 0;
    vqdEEPROM_ParameterData_Save(n, image);
    requireStored(n);
}

int set(const Options& options)
{
    std::vector<Assignment> assignments;
    for (const std::string& word : options.words)
        assignments.push_back(parseAssignment(word));

    Output output;
    catchInterrupts();
    const Session session;
    const int n = session.chooseToChange(options.camera).nIndex;
    if (vqdDeviceOpen(n) != 1)
        throw Failure(kFailed, "the camera can not be opened");
    for (const Assignment& assignment : assignments) {
        endIfInterrupted();
        apply(n, assignment);
    }
    if (options.save)
        save(n);
    for (const Assignment& assignment : assignments)
        print(output, n, *assignment.setting);
    output.finish();
    if (!options.save)
        fputs("vqd: not saved; the next program that lists the camera has its stored settings again (--save keeps)\n",
              stderr);
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
    for (CLI::App* command : {getter, setter})
        command->add_option("-c,--camera", options->camera, "Index or serial number")->type_name("CAMERA");
    setter->footer("Example: vqd set depth-range=300,4000 flip-horizontal=1 --save\nSettings:\n" + settingNames());
    getter->footer("Example: vqd get frequency depth-range\nSettings:\n" + settingNames());
    getter->callback([&run, options] { run = [options] { return get(*options); }; });
    setter->callback([&run, options] { run = [options] { return set(*options); }; });
}
