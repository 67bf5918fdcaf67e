// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The table of settings in words and as JSON.
#include <algorithm>
#include <cctype>

#include "host/settings.h"

namespace
{

// "20 or 30 (VQD-HT110, VQD-HT120), 10 (VQD-RS110, VQD-RS120)"
std::string modelChoicesText(std::span<const Choice> choices)
{
    std::string text;
    for (size_t i = 0; i < choices.size(); ++i) {
        const bool more = i + 1 < choices.size() && choices[i + 1].models.data() == choices[i].models.data();
        text += std::to_string(choices[i].value);
        if (more) {
            text += " or ";
            continue;
        }
        for (const char* model : choices[i].models)
            text += (model == choices[i].models.front() ? " (" : ", ") + std::string(model);
        text += i + 1 < choices.size() ? "), " : ")";
    }
    return text;
}

// "0 none, 1 gated"
std::string choicesText(std::span<const Choice> choices)
{
    std::string text;
    for (const Choice& choice : choices)
        text += (text.empty() ? "" : ", ") + std::to_string(choice.value) + ' ' + choice.meaning;
    return text;
}

bool isSwitch(const SettingValue& value)
{
    return value.least == 0 && value.most == 1;
}

std::string valueText(const SettingValue& value)
{
    if (isSwitch(value))
        return "1 or 0";
    if (value.choices.empty())
        return std::to_string(value.least) + " to " + std::to_string(value.most);
    return value.choices[0].models.empty() ? choicesText(value.choices) : modelChoicesText(value.choices);
}

std::string upperCase(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    return text;
}

const char* typeName(const SettingValue& value)
{
    switch (value.type) {
    case ValueType::number:
        return "number";
    case ValueType::text:
        return "text";
    case ValueType::integer:
        break;
    }
    return isSwitch(value) ? "switch" : value.choices.empty() ? "integer" : "choice";
}

Json choiceJson(const Choice& choice)
{
    Json json = {{"value", choice.value}, {"meaning", choice.meaning}};
    if (!choice.models.empty())
        json["models"] = choice.models;
    return json;
}

Json valueJson(const SettingValue& value)
{
    Json json = {{"name", value.name}, {"type", typeName(value)}};
    if (value.type == ValueType::integer) {
        json["minimum"] = value.least;
        json["maximum"] = value.most;
    }
    for (const Choice& choice : value.choices)
        json["choices"].push_back(choiceJson(choice));
    return json;
}

} // namespace

std::string valuesText(const Setting& setting)
{
    if (setting.set == nullptr)
        return "read only";
    std::string names, order, texts;
    for (const SettingValue& value : setting.values) {
        const std::string name = upperCase(value.name);
        names += (names.empty() ? "" : ",") + name;
        order += (order.empty() ? "" : " below ") + name;
        texts += (texts.empty() ? "" : ", ") + valueText(value);
    }
    const std::string unit = setting.unit;
    if (setting.values.size() == 1)
        return unit + (unit.empty() ? "" : ": ") + texts;
    if (setting.ascending) // of one kind, and so of one range
        texts = valueText(setting.values[0]) + ", " + order;
    return names + (unit.empty() ? "" : " in " + unit) + ": " + texts;
}

Json settingsTable()
{
    Json table = Json::array();
    for (const Setting& setting : allSettings()) {
        Json& row = table.emplace_back(Json{{"name", setting.name},
                                            {"label", setting.label},
                                            {"unit", *setting.unit ? Json(setting.unit) : Json()},
                                            {"group", setting.group},
                                            {"read-only", setting.set == nullptr},
                                            {"needs-frame", setting.needsFrame},
                                            {"ascending", setting.ascending}});
        for (const SettingValue& value : setting.values)
            row["values"].push_back(valueJson(value));
    }
    return table;
}

std::string settingNames()
{
    std::string text;
    for (const Setting& setting : allSettings())
        text += std::string("  ") + setting.name + (setting.set ? "=  " : "  ") + valuesText(setting) + '\n';
    return text;
}
