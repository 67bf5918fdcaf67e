// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The common options on the command line.
#include "options.h"

#include "command_line.h"

CommonOptions common;

void addCommon(CLI::App& command, int options)
{
    if (options & kCamera)
        command
            .add_option("-c,--camera", common.camera,
                        std::string("Index, serial number, port or BUS:ADDRESS, as shown by vqd list") +
                            (options & kAllCameras ? "; or all" : ""))
            ->type_name("CAMERA")
            ->check(notEmpty); // a script's variable that is not set chooses no camera
    if (options & kJson)
        command.add_flag("--json", common.json, "Print one JSON object on standard output");
    if (options & kForce)
        command.add_flag("--force", common.force, "Replace existing files");
    if (options & kYes)
        command.add_flag("-y,--yes", common.yes, "Do not ask before writing to the camera's memory");
    if (options & kProfile)
        command.add_flag("--no-profile", common.noProfile, "Do not use this machine's profile of the camera");
    CLI::Option* quiet =
        command.add_flag("-q,--quiet", common.quiet, "Print only warnings and failures on standard error");
    command.add_flag("-v,--verbose", common.verbose, "Print each step on standard error")->excludes(quiet);
}

Existing existing()
{
    return common.force ? Existing::replace : Existing::refuse;
}
