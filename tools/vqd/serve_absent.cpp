// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What stands for vqd serve in a build without an HTTP server.
#include <CLI/CLI.hpp>

#include "host/failure.h"

#include "commands.h"

void addServe(CLI::App& app, Run& run)
{
    CLI::App* command = app.add_subcommand("serve", "Shows the cameras in the browser (not in this build)");
    command->allow_extras();
    command->callback([&run] {
        run = []() -> int {
            throw Failure(kFailed, "this vqd was built without GNU libmicrohttpd, which vqd serve needs");
        };
    });
}
