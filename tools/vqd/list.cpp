// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd list: the attached cameras, a line each.
#include <CLI/CLI.hpp>

#include "camera.h"
#include "commands.h"
#include "exit_codes.h"
#include "interrupt.h"
#include "output.h"

static int list()
{
    Output output;
    catchInterrupts();
    const Session session;
    endIfInterrupted();
    for (const DevInfo& camera : session.cameras())
        output.print("%d  %-10s  %s  %s\n", camera.nIndex, camera.szDeviceName, camera.szSerialNumber,
                     usbIds(camera).c_str());
    output.finish();
    return kDone;
}

void addList(CLI::App& app, Run& run)
{
    CLI::App* command = app.add_subcommand("list", "Lists the cameras: index, product, serial number, USB ids");
    command->callback([&run] { run = list; });
}
