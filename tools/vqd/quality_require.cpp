// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A value needs a unit, since a limit in the wrong one would let everything pass.
#include "quality_require.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "host/failure.h"
#include "host/formatted.h"

namespace
{

struct Unit {
    const char* name;
    const char* of; // the unit of a metric
    double factor;
};
constexpr Unit kUnits[] = {
    {"mm", "mm", 1},
    {"um", "mm", 0.001},
    {"cm", "mm", 10},
    {"m", "mm", 1000},
    {"%", "%", 1},
    {"deg", "deg", 1},
    {"mm/min", "mm/min", 1},
    {"um/min", "mm/min", 0.001},
    {"mm/h", "mm/min", 1.0 / 60},
    {"mm/K", "mm/K", 1},
    {"um/K", "mm/K", 0.001},
    {"counts", "counts", 1},
    {"counts^2", "counts^2", 1},
    {"mm*counts", "mm*counts", 1},
};

struct Amount {
    double number;
    std::string unit;
};

std::optional<Amount> amountIn(const std::string& text)
{
    const size_t begin = text.find_first_not_of(' ');
    if (begin == std::string::npos)
        return std::nullopt;
    double number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data() + begin, end, number, std::chars_format::fixed);
    if (error != std::errc{} || !std::isfinite(number))
        return std::nullopt;
    const char* const unit = std::find_if(rest, end, [](char c) { return c != ' '; });
    return Amount{number, {unit, end}};
}

const Unit* unitNamed(const std::string& name, const char* of)
{
    const auto* unit =
        std::ranges::find_if(kUnits, [&](const Unit& one) { return name == one.name && std::string(of) == one.of; });
    return unit == std::end(kUnits) ? nullptr : unit;
}

template <typename Names> std::string listed(const Names& names)
{
    std::string text;
    for (const auto& name : names)
        text += (text.empty() ? "" : ", ") + std::string(name);
    return text;
}

std::string unitsOf(const char* of)
{
    std::vector<std::string> names;
    for (const Unit& unit : kUnits)
        if (std::string(of) == unit.of)
            names.emplace_back(unit.name);
    return listed(names);
}

const MetricRow& requiredMetric(const std::string& name, const std::string& text)
{
    const MetricRow* const row = metricNamed(name);
    if (row != nullptr)
        return *row;
    std::vector<std::string> names;
    for (const MetricRow& one : allMetrics())
        names.emplace_back(one.name);
    throw Failure(kUsage, "'" + text + "': there is no metric '" + name + "'; there are " + listed(names));
}

double limitOf(const MetricRow& row, const std::string& value, const std::string& text)
{
    const std::optional<Amount> amount = amountIn(value);
    if (!amount)
        throw Failure(kUsage, "'" + text + "': '" + value + "' is no number with a unit");
    const Unit* const unit = unitNamed(amount->unit, row.unit);
    if (unit == nullptr)
        throw Failure(kUsage, "'" + text + "': " + row.name + " needs one of the units " + unitsOf(row.unit) +
                                  (amount->unit.empty() ? "" : ", not " + amount->unit));
    return amount->number * unit->factor;
}

} // namespace

Requirement requirementOf(const std::string& text, const std::vector<std::string>& regions)
{
    const size_t sign = text.find_first_of("<>");
    if (sign == std::string::npos)
        throw Failure(kUsage, "'" + text + "' is not of the form METRIC<VALUE or METRIC>VALUE, such as noise<5mm");
    Requirement requirement{};
    requirement.text = text;
    requirement.isBelow = text[sign] == '<';
    requirement.isEqualEnough = text.compare(sign + 1, 1, "=") == 0;
    std::string name = text.substr(0, sign);
    name.resize(name.find_last_not_of(' ') + 1);
    if (const size_t colon = name.rfind(':'); colon != std::string::npos) { // a region's name may have some itself
        requirement.region = name.substr(0, colon);
        name = name.substr(colon + 1);
        if (std::ranges::find(regions, requirement.region) == regions.end())
            throw Failure(kUsage, "'" + text + "': there is no region '" + requirement.region + "'; there are " +
                                      listed(regions));
    }
    const MetricRow& row = requiredMetric(name, text);
    requirement.metric = row.metric;
    requirement.limit = limitOf(row, text.substr(sign + (requirement.isEqualEnough ? 2 : 1)), text);
    if (row.isSigned && !requirement.isBelow)
        throw Failure(kUsage, "'" + text + "': of " + row.name +
                                  " the magnitude counts, so it can only be required to be below something");
    if (requirement.limit < 0)
        throw Failure(kUsage, "'" + text + "': a limit below 0 would always hold or never");
    return requirement;
}

bool Requirement::holds(const Figure& figure) const
{
    if (!figure.value)
        return false;
    const double value = rowOf(metric).isSigned ? std::abs(*figure.value) : *figure.value;
    return isBelow ? value < limit || (isEqualEnough && value == limit)
                   : value > limit || (isEqualEnough && value == limit);
}

std::vector<Verdict> judge(std::span<const Requirement> requirements, const QualityReport& report)
{
    std::vector<Verdict> verdicts;
    for (const Requirement& requirement : requirements)
        for (const QualityReport::Region& region : report.regions)
            if (requirement.region.empty() || requirement.region == region.name) {
                const Figure& figure = region.figures[static_cast<size_t>(requirement.metric)];
                verdicts.push_back({&requirement, report.file, region.name, figure, requirement.holds(figure)});
            }
    return verdicts;
}

std::string verdictLines(std::span<const Verdict> verdicts)
{
    std::string lines;
    for (const Verdict& verdict : verdicts) {
        const std::string where = (verdict.file.empty() ? "" : verdict.file + ", ") + verdict.region;
        const std::string value = verdict.figure.value ? figureText(verdict.requirement->metric, verdict.figure)
                                                       : "no value: " + verdict.figure.reason;
        lines += formatted("%-7s  %s  (%s: %s)\n", verdict.isMet ? "met" : "NOT MET", verdict.requirement->text.c_str(),
                           where.c_str(), value.c_str());
    }
    return lines;
}

Json verdictsJson(std::span<const Verdict> verdicts)
{
    Json json = Json::array();
    for (const Verdict& verdict : verdicts) {
        json.push_back({{"requirement", verdict.requirement->text},
                        {"region", verdict.region},
                        {"value", verdict.figure.value ? Json(*verdict.figure.value) : Json()},
                        {"unit", rowOf(verdict.requirement->metric).unit},
                        {"met", verdict.isMet}});
        if (!verdict.file.empty())
            json.back()["file"] = verdict.file;
    }
    return json;
}

std::optional<double> distanceIn(const std::string& text)
{
    constexpr double kMost = 65535; // what a depth can be
    std::optional<Amount> amount = amountIn(text);
    if (amount && amount->unit.empty())
        amount->unit = "mm";
    const Unit* const unit = amount ? unitNamed(amount->unit, "mm") : nullptr;
    const double distance = unit != nullptr ? amount->number * unit->factor : 0;
    return distance > 0 && distance <= kMost ? std::optional(distance) : std::nullopt;
}
