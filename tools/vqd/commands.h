// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The sub-commands. Each adds its command line to the application; when it is the one that was asked for, parsing puts
// what does the work, and gives the exit code, into `run`.
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
void addCloud(CLI::App& app, Run& run);
void addEeprom(CLI::App& app, Run& run);
void addLens(CLI::App& app, Run& run);
void addTable(CLI::App& app, Run& run);
void addReset(CLI::App& app, Run& run);
void addCompletion(CLI::App& app, Run& run);
void addStats(CLI::App& app, Run& run);
void addView(CLI::App& app, Run& run);
void addSelftest(CLI::App& app, Run& run);
void addDoctor(CLI::App& app, Run& run);

// How the tool was called.
struct Invocation {
    char** arguments;                 // all, as main() got them
    std::vector<std::string> program; // sim: what stands behind the first "--"
};
void addSim(CLI::App& app, Run& run, const Invocation& invocation);
