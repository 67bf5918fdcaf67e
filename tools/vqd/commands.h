// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The sub-commands. Each adds its command line to the application. Parsing then puts the work of the command that was
// asked for into `run`, which returns the exit code.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace CLI
{
class App;
}

using Run = std::function<int()>;

void addList(CLI::App& app, Run& run);
void addInfo(CLI::App& app, Run& run);
void addDumpLoad(CLI::App& app, Run& run);
void addGrab(CLI::App& app, Run& run);
void addGetSet(CLI::App& app, Run& run);
void addSettings(CLI::App& app, Run& run);
void addCloud(CLI::App& app, Run& run);
void addEeprom(CLI::App& app, Run& run);
void addLens(CLI::App& app, Run& run);
void addTable(CLI::App& app, Run& run);
void addProfile(CLI::App& app, Run& run);
void addPublish(CLI::App& app, Run& run);
void addReset(CLI::App& app, Run& run);
void addCompletion(CLI::App& app, Run& run);
void addRecord(CLI::App& app, Run& run);
void addStats(CLI::App& app, Run& run);
void addView(CLI::App& app, Run& run);
void addSelftest(CLI::App& app, Run& run);
void addDoctor(CLI::App& app, Run& run);
void addWorker(CLI::App& app, Run& run);
void addStatus(CLI::App& app, Run& run);
void addRecording(CLI::App& app, Run& run);
void addCalibrate(CLI::App& app, Run& run);
void addServe(CLI::App& app, Run& run);

// How the tool was called, for commands that run themselves again to have a virtual bus.
struct Invocation {
    char** arguments;                 // all, as main() got them
    std::vector<std::string> program; // of sim: what follows the first "--"
};
void addConvert(CLI::App& app, Run& run, const Invocation& invocation);
void addQuality(CLI::App& app, Run& run, const Invocation& invocation);
void addSim(CLI::App& app, Run& run, const Invocation& invocation);
