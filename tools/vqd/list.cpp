// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd list: the attached cameras, a line each.
#include <CLI/CLI.hpp>

#include "camera.h"
#include "commands.h"
#include "common.h"
#include "exit_codes.h"
#include "output.h"

static int list()
{
    Output output;
    const Session session;
    Json json = document("list");
    json["cameras"] = Json::array();
    for (const Camera& camera : session.cameras()) {
        json["cameras"].push_back(identityJson(camera));
        if (!common.json)
            output.print("%d  %-10s  %s  %s  %s\n", camera.nIndex, camera.szDeviceName, camera.szSerialNumber,
                         usbIds(camera).c_str(), place(camera).c_str());
    }
    if (common.json)
        output.print(json);
    output.finish();
    return kDone;
}

void addList(CLI::App& app, Run& run)
{
    CLI::App* command =
        app.add_subcommand("list", "Lists the cameras: index, product, serial number, USB ids, BUS-ADDRESS");
    addCommon(*command, kJson);
    command->footer("Example: vqd list --json | jq -r '.cameras[].serial'");
    command->callback([&run] { run = list; });
}
