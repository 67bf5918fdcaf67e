// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Settings on their way to a claimed camera: sent, told apart when they fail, and compared with what it then has.
#include <algorithm>
#include <string_view>

#include "common.h"
#include "device/models.h"
#include "host/failure.h"
#include "interrupt.h"
#include "host/library_lines.h"
#include "host/settings.h"

namespace
{

Json valueOf(const Assignment& assignment)
{
    return assignment.values.size() == 1 ? Json(assignment.values[0]) : Json(assignment.values);
}

// The library gives one result for a value that it refuses and for a transfer that fails; its lines tell them apart.
void apply(const Camera& camera, const Assignment& assignment)
{
    const Setting& setting = *assignment.setting;
    LibraryLines lines;
    detail("setting %s", setting.name);
    if (setting.set(camera.nIndex, assignment.values.data()) == 1)
        return;
    if (countStarting(lines.take(), kImageNotSent) > 0)
        failOn(camera, std::string(setting.name) + " is not set: its transfer to the camera failed or was refused");
    failOn(camera, "the camera does not take " + std::string(setting.name) + '=' + settingText(valueOf(assignment)) +
                       " (" + setting.values + ")");
}

// Libusb on Linux does not read the table, and the library delivers zeros for it.
void noteIdleFppn(const Camera& camera, std::span<const Assignment> assignments)
{
    const bool on = std::ranges::any_of(assignments, [](const Assignment& assignment) {
        return assignment.setting->name == std::string_view("fppn") && assignment.values[0] == 1;
    });
    if (on && IsHostCorrectedProduct(camera.szDeviceName) &&
        std::ranges::all_of(m_nEEPROMFPPNBuf, [](int value) { return value == 0; }))
        note("fppn is on, but adds nothing: the FPPN table reads as zeros, since libusb on Linux refuses to read it");
}

} // namespace

std::vector<Assignment> differing(const Camera& camera, std::span<const Assignment> assignments)
{
    std::vector<Assignment> rest;
    for (const Assignment& assignment : assignments)
        if (assignment.setting->get(camera.nIndex) != valueOf(assignment))
            rest.push_back(assignment);
    return rest;
}

void requireTaken(const Camera& camera, std::span<const Assignment> assignments)
{
    for (const Assignment& assignment : differing(camera, assignments))
        throw Failure(kVerification, std::string(assignment.setting->name) + " is " +
                                         settingText(assignment.setting->get(camera.nIndex)) + " instead of " +
                                         settingText(valueOf(assignment)));
}

void applySettings(const Camera& camera, std::span<const Assignment> assignments)
{
    for (const Assignment& assignment : assignments) {
        endIfInterrupted();
        apply(camera, assignment);
    }
    requireTaken(camera, assignments);
    noteIdleFppn(camera, assignments);
}
