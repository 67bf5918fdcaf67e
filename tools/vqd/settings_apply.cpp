// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Sending and showing settings, with the messages and signals of the tool.
#include "settings_apply.h"

#include <algorithm>

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

std::vector<Assignment> neededSettings(const std::vector<std::string>& needed, const char* why,
                                       const std::vector<std::string>& chosen)
{
    std::vector<std::string> texts;
    std::string told;
    for (const std::string& text : needed) {
        const std::string key = text.substr(0, text.find('=') + 1);
        if (std::ranges::any_of(chosen, [&](const std::string& other) { return other.starts_with(key); }))
            continue;
        texts.push_back(text);
        told += " " + text;
    }
    if (!told.empty())
        note("%s, with%s; -s overrides", why, told.c_str());
    texts.insert(texts.end(), chosen.begin(), chosen.end());
    return parseAssignments(texts);
}

std::string settingLines(const Json& settings)
{
    std::string lines;
    for (const auto& [name, value] : settings.items())
        lines += formatted("%-17s %s\n", name.c_str(), settingText(value).c_str());
    return lines;
}
