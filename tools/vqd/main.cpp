// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The command line: sub-commands, exit codes, and the one place where failures are reported.
#include <algorithm>
#include <cstdio>
#include <exception>

#include <CLI/CLI.hpp>

#include "host/camera_lock.h"
#include "host/whole_files.h"

#include "command_line.h"
#include "commands.h"

namespace
{

// Takes the program that `sim` runs from the arguments, because its options are not ours to parse.
std::vector<std::string> takeProgram(std::vector<std::string>& arguments)
{
    if (arguments.empty() || arguments[0] != "sim")
        return {};
    const auto dashes = std::find(arguments.begin(), arguments.end(), "--");
    if (dashes == arguments.end())
        return {};
    std::vector<std::string> program(dashes + 1, arguments.end());
    arguments.erase(dashes, arguments.end());
    return program;
}

int runCommandLine(int argc, char** argv)
{
    std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
    const Invocation invocation{argv, takeProgram(arguments)};
    CLI::App app("USB time-of-flight depth cameras from the command line.", "vqd");
    app.formatter(helpFormatter());
    app.require_subcommand(1);
    app.failure_message(usageMessage);
    app.set_version_flag("--version", "vqd " VQD_VERSION);
    app.footer("Exit codes: 0 done, 1 failed, 2 wrong usage, 3 no camera, 4 access denied, 5 camera lost,\n"
               "6 verification failed, 7 a requirement is not met, 130 interrupted with nothing saved.\n"
               "Example: vqd list\n"
               "Example: vqd grab -n 30 -o pictures\n"
               "Example: vqd set depth-range=300,4000 --save");
    Run run;
    addList(app, run);
    addInfo(app, run);
    addGetSet(app, run);
    addSettings(app, run);
    addDumpLoad(app, run);
    addGrab(app, run);
    addRecord(app, run);
    addCloud(app, run);
    addEeprom(app, run);
    addLens(app, run);
    addTable(app, run);
    addProfile(app, run);
    addCalibrate(app, run);
    addReset(app, run);
    addCompletion(app, run);
    addStats(app, run);
    addView(app, run);
    addSelftest(app, run);
    addDoctor(app, run);
    addWorker(app, run);
    addStatus(app, run);
    addRecording(app, run);
    addConvert(app, run, invocation);
    addPublish(app, run);
    addQuality(app, run, invocation);
    addServe(app, run);
    addSim(app, run, invocation);
    requireKnownCommand(app, arguments, app.get_name());
    try {
        std::reverse(arguments.begin(), arguments.end()); // as the parser takes them
        app.parse(arguments);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kDone : kUsage;
    }
    nameLockHolder("vqd " + app.get_subcommands().front()->get_name());
    return run();
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return runCommandLine(argc, argv);
    } catch (const FileExists& failure) {
        fprintf(stderr, "vqd: %s; --force replaces it\n", failure.what());
        return failure.code;
    } catch (const Failure& failure) {
        fprintf(stderr, "vqd: %s\n", failure.what());
        return failure.code;
    } catch (const std::exception& error) {
        fprintf(stderr, "vqd: %s\n", error.what());
        return kFailed;
    }
}
