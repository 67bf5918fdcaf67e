// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd sim in a build without the virtual bus, which only says so.
#include <CLI/CLI.hpp>

#include "commands.h"
#include "host/failure.h"

void addSim(CLI::App& app, Run& run, const Invocation&)
{
    CLI::App* command = app.add_subcommand("sim", "Runs a program with virtual cameras (not in this build)");
    command->allow_extras();
    command->callback([&run] {
        run = []() -> int {
            throw Failure(kFailed,
                          "this build has no virtual camera, because libumockdev-dev was missing when it was made");
        };
    });
}
