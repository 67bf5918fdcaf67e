// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd list: a line for each attached camera.
#include <CLI/CLI.hpp>

#include "host/formatted.h"

#include "cameras.h"
#include "commands.h"
#include "options.h"
#include "output.h"

static int list()
{
    Output output;
    Json json = document("list");
    json["cameras"] = Json::array();
    std::string lines;
    try {
        const Cameras cameras;
        for (const ListedCamera& camera : cameras.all()) {
            warnOfEeprom(camera);
            json["cameras"].push_back(identityJson(camera));
            lines +=
                formatted("%d  %-10s  %-14s  %s  %-5s  %s\n", camera.nIndex, camera.szDeviceName, camera.szSerialNumber,
                          usbIds(camera).c_str(), camera.place.port.c_str(), busAddress(camera).c_str());
        }
    } catch (const Failure& failure) {
        if (common.json && failure.code == kNoCamera)
            output.print(json); // a script can count them
        throw;
    }
    output.finish(json, lines);
    return kDone;
}

void addList(CLI::App& app, Run& run)
{
    CLI::App* command =
        app.add_subcommand("list", "Lists the cameras: index, product, serial number, USB ids, port, BUS:ADDRESS");
    addCommon(*command, kJson);
    command->footer("Example: vqd list --json | jq -r '.cameras[].serial'");
    command->callback([&run] { run = list; });
}
