// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Sending and showing settings, with the messages and signals of the tool.
#include "settings_apply.h"

#include "host/formatted.h"

#include "interrupt.h"
#include "messages.h"

void applySettings(const ListedCamera& camera, std::span<const Assignment> assignments)
{
    for (const Assignment& assignment : assignments) {
        endIfInterrupted();
        detail("setting %s", assignment.setting->name);
        sendAssignment(camera, assignment);
    }
    requireTaken(camera, assignments);
    if (fppnAddsNothing(camera, assignments))
        note("fppn is on, but adds nothing: the FPPN table reads as zeros, because libusb on Linux refuses to read it");
}

std::string settingLines(const Json& settings)
{
    std::string lines;
    for (const auto& [name, value] : settings.items())
        lines += formatted("%-17s %s\n", name.c_str(), settingText(value).c_str());
    return lines;
}
