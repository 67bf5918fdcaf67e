// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A comma ends a value: what follows it is the next value of the same setting, or the next setting when it has an
// equals sign.
#include "gstreamer/settings_json.h"

#include <algorithm>
#include <charconv>
#include <utility>
#include <vector>

namespace
{

struct Assignment {
    std::string name;
    std::vector<int> values;
};

bool isName(const std::string& text)
{
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return (c >= 'a' && c <= 'z') || c == '-'; });
}

bool addValue(const std::string& text, std::vector<int>& values)
{
    int value = 0;
    const char* const end = text.data() + text.size();
    const auto [next, error] = std::from_chars(text.data(), end, value);
    values.push_back(value);
    return error == std::errc{} && next == end;
}

std::string jsonOf(const Assignment& assignment)
{
    std::string values;
    for (const int value : assignment.values)
        values += (values.empty() ? "" : ",") + std::to_string(value);
    return '"' + assignment.name + "\":" + (assignment.values.size() == 1 ? values : '[' + values + ']');
}

} // namespace

bool settingsJson(const std::string& text, std::string& json, std::string& why)
{
    std::vector<Assignment> assignments;
    for (size_t at = 0; at <= text.size();) {
        const size_t comma = std::min(text.find(',', at), text.size());
        std::string part = text.substr(at, comma - at);
        at = comma + 1;
        if (const size_t equals = part.find('='); equals != std::string::npos) {
            assignments.push_back({part.substr(0, equals), {}});
            part.erase(0, equals + 1);
        }
        if (assignments.empty() || !isName(assignments.back().name) || !addValue(part, assignments.back().values)) {
            why = "The settings '" + text + "' are not of the form NAME=NUMBER,NAME=NUMBER,NUMBER.";
            return false;
        }
    }
    json.clear();
    for (const Assignment& assignment : assignments)
        json += (json.empty() ? "{" : ",") + jsonOf(assignment);
    json += '}';
    return true;
}
