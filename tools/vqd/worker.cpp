// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd worker: keeps one camera streaming to whoever connects to its socket.
#include <memory>

#include <CLI/CLI.hpp>

#include "recording/recorder.h"
#include "worker/supervisor.h"

#include "amounts.h"
#include "command_line.h"
#include "commands.h"
#include "messages.h"
#include "options.h"

namespace
{

struct Options {
    std::string socket, recordings, keepFree;
    std::vector<std::string> settings;
    bool isChild = false;
};

// An index or an address changes when something is plugged in or out, so neither can name a camera for long.
std::string checkName(const std::string& name)
{
    const bool isSerial = name.size() == 14 && name.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    const bool isPort =
        name.find('-') != std::string::npos && name.find_first_not_of("0123456789.-") == std::string::npos;
    return isSerial || isPort ? ""
                              : "a worker's camera is named by its serial number or its port, as shown by vqd list";
}

ChildOptions childOptions(const Options& options)
{
    ChildOptions child{common.camera, options.settings, !common.noProfile, options.recordings};
    child.keepFree = bytesIn(options.keepFree).value_or(child.keepFree);
    return child;
}

// The camera's process gets the folder as it is now, wherever that process works.
void prepareFolder(std::string& recordings)
{
    if (recordings.empty())
        return;
    if (const char* const missing = recordingMissing())
        throw Failure(kUsage, missing);
    requireWritableDirectory(recordings);
    recordings = std::filesystem::canonical(recordings).string();
}

int work(const Options& options)
{
    ChildOptions child = childOptions(options);
    if (options.isChild)
        return runChild(child);
    prepareFolder(child.recordings);
    if (const std::string wrong = common.camera.empty() ? "" : checkName(common.camera); !wrong.empty())
        throw Failure(kUsage, wrong);
    Supervisor supervisor({child, options.socket, [](const std::string& sentence) { note("%s", sentence.c_str()); }});
    detail("the socket is %s", supervisor.socket().c_str());
    supervisor.run();
    return kDone;
}

} // namespace

void addWorker(CLI::App& app, Run& run)
{
    CLI::App* command = app.add_subcommand("worker", "Keeps a camera streaming to programs that connect to its socket");
    const auto options = std::make_shared<Options>();
    command->add_option("--socket", options->socket, "The socket; by default SERIAL.sock in the folder of workers")
        ->type_name("PATH")
        ->check(notEmpty);
    command
        ->add_option("--recordings", options->recordings,
                     "The folder in which readers may have recordings made; without it they may not")
        ->type_name("FOLDER")
        ->check(notEmpty);
    addKeepFree(*command, options->keepFree);
    addRepeatable(*command, "-s,--set", options->settings, "KEY=VALUE", "A setting for this worker, as in vqd set");
    command->add_flag("--child", options->isChild)->group(""); // how the worker runs the camera's own process
    addCommon(*command, kCamera | kProfile);
    command->footer(
        "It waits for its camera, opens it again when it was lost, and ends on Ctrl-C or SIGTERM. -c takes a serial\n"
        "number or a port; without -c it takes the first camera that it finds, and keeps to that one.\n"
        "vqd status shows all workers.\n"
        "Example: vqd worker -c 24061100000001\n"
        "Example: vqd worker -c 1-2.3 -s integration-time=500 --socket /run/robot/left.sock");
    command->callback([&run, options] { run = [options] { return work(*options); }; });
}
