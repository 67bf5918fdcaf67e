// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Checks before sending, one sending, and the comparison after it.
#include "host/assignments.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <functional>
#include <string_view>

#include "device/base/models.h"

#include "host/library_lines.h"

namespace
{

// Nothing where the text is not made of numbers and commas alone.
std::vector<int> parseNumbers(const std::string& text)
{
    std::vector<int> numbers;
    const char* at = text.data();
    const char* const end = at + text.size();
    for (;;) {
        int value = 0;
        const auto [next, error] = std::from_chars(at, end, value);
        if (error != std::errc{} || (next != end && *next != ','))
            return {};
        numbers.push_back(value);
        if (next == end)
            return numbers;
        at = next + 1;
    }
}

// A number or several; nothing where there is anything else.
std::vector<int> numbersIn(const Json& json)
{
    constexpr double kMost = 1e6; // far beyond what any setting takes
    std::vector<int> numbers;
    for (const Json& element : json.is_array() ? json : Json::array({json})) {
        if (!element.is_number_integer() || std::abs(element.get<double>()) > kMost)
            return {};
        numbers.push_back(element.get<int>());
    }
    return numbers;
}

Assignment parseAssignment(const std::string& text)
{
    const size_t equals = text.find('=');
    if (equals == std::string::npos)
        throw Failure(kUsage, "'" + text + "' is not of the form KEY=VALUE");
    return assignmentOf(settingByName(text.substr(0, equals)), parseNumbers(text.substr(equals + 1)));
}

} // namespace

Json Assignment::json() const
{
    return values.size() == 1 ? Json(values[0]) : Json(values);
}

std::string Assignment::text() const
{
    return settingText(json());
}

Assignment assignmentOf(const Setting& setting, std::vector<int> values)
{
    if (setting.set == nullptr)
        throw Failure(kUsage, std::string(setting.name) + " can only be read");
    const bool fits = std::ranges::equal(values, setting.values, [](int number, const SettingValue& value) {
        return number >= value.least && number <= value.most;
    });
    if (!fits || (setting.ascending && values[0] >= values[1]))
        throw Failure(kUsage, std::string(setting.name) + " takes " + valuesText(setting));
    return {&setting, std::move(values)};
}

std::vector<Assignment> parseAssignments(const std::vector<std::string>& texts)
{
    std::vector<Assignment> assignments;
    for (const std::string& text : texts)
        assignments.push_back(parseAssignment(text));
    std::ranges::stable_sort(assignments, std::less(), &Assignment::setting);
    return assignments;
}

void requireFrames(std::span<const Assignment> assignments)
{
    for (const Assignment& assignment : assignments)
        if (assignment.setting->name == std::string_view("illumination") && assignment.values[0] == 0)
            throw Failure(kUsage, "illumination=0 also switches the capture off: no frame would come until the library "
                                  "opened the camera again, which switches both on");
}

std::vector<Assignment> parseForFrames(const std::vector<std::string>& texts)
{
    std::vector<Assignment> assignments = parseAssignments(texts);
    requireFrames(assignments);
    return assignments;
}

std::vector<Assignment> assignmentsFrom(const Json& json, const std::string& file)
{
    if (!json.contains("settings") || !json["settings"].is_object())
        throw Failure(kUsage, file + ": \"settings\" is missing or is not an object");
    const Json& settings = json["settings"];
    std::vector<Assignment> assignments;
    for (const Setting& setting : allSettings())
        if (setting.set != nullptr && settings.contains(setting.name))
            assignments.push_back(assignmentOf(setting, numbersIn(settings[setting.name])));
    for (const auto& [name, unused] : settings.items())
        settingByName(name);
    return assignments;
}

void sendAssignment(const ListedCamera& camera, const Assignment& assignment)
{
    const Setting& setting = *assignment.setting;
    LibraryLines lines;
    if (setting.set(camera.nIndex, assignment.values.data()) == 1)
        return;
    if (countStarting(lines.take(), kImageNotSent) > 0)
        failOn(camera, std::string(setting.name) + " is not set: its transfer to the camera failed or was refused");
    failOn(camera, "the camera does not take " + std::string(setting.name) + '=' + assignment.text() + " (" +
                       valuesText(setting) + ")");
}

std::vector<Assignment> differing(const ListedCamera& camera, std::span<const Assignment> assignments)
{
    std::vector<Assignment> rest;
    for (const Assignment& assignment : assignments)
        if (assignment.setting->get(camera.nIndex) != assignment.json())
            rest.push_back(assignment);
    return rest;
}

void requireTaken(const ListedCamera& camera, std::span<const Assignment> assignments)
{
    for (const Assignment& assignment : differing(camera, assignments))
        throw Failure(kVerification, std::string(assignment.setting->name) + " is " +
                                         settingText(assignment.setting->get(camera.nIndex)) + " instead of " +
                                         assignment.text());
}

bool fppnAddsNothing(const ListedCamera& camera, std::span<const Assignment> assignments)
{
    const bool on = std::ranges::any_of(assignments, [](const Assignment& assignment) {
        return assignment.setting->name == std::string_view("fppn") && assignment.values[0] == 1;
    });
    return on && IsHostCorrectedProduct(camera.szDeviceName) &&
           std::ranges::all_of(m_nEEPROMFPPNBuf, [](int value) { return value == 0; });
}

Json settingsJson(int n, bool frameRead)
{
    Json json;
    for (const Setting& setting : allSettings())
        if (frameRead || !setting.needsFrame)
            json[setting.name] = setting.get(n);
    return json;
}

std::string settingText(const Json& value)
{
    if (value.is_string())
        return value.get<std::string>();
    if (!value.is_array())
        return value.dump();
    std::string text;
    for (const Json& element : value)
        text += (text.empty() ? "" : ",") + element.dump();
    return text;
}
