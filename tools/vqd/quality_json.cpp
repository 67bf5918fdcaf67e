// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A long run keeps a few hundred points of its course, each the mean of the frames around it.
#include "quality_json.h"

#include <algorithm>
#include <cmath>

#include "host/documents.h"

#include "plain_text.h"

namespace
{

constexpr size_t kMostPoints = 240;
constexpr double kMost = 1e12; // of any value; beyond that, a plot could not have an axis

// Means of equal groups; null for a group without a value.
template <typename Values, typename ValueOf> Json course(const Values& values, ValueOf valueOf)
{
    Json json = Json::array();
    const size_t groups = std::min(values.size(), kMostPoints);
    for (size_t group = 0; group < groups; ++group) {
        double sum = 0;
        int count = 0;
        for (size_t i = values.size() * group / groups; i < values.size() * (group + 1) / groups; ++i)
            if (const std::optional<double> value = valueOf(values[i])) {
                sum += *value;
                ++count;
            }
        json.push_back(count > 0 ? Json(sum / count) : Json());
    }
    return json;
}

std::optional<double> finiteOrNone(double value)
{
    return std::isfinite(value) ? std::optional(value) : std::nullopt;
}

Json temperatureJson(const std::vector<double>& temperatures)
{
    const auto [least, most] = std::ranges::minmax(temperatures);
    return {{"first", temperatures.front()}, {"last", temperatures.back()}, {"minimum", least}, {"maximum", most}};
}

Json regionJson(const QualityRegion& region, const RegionQuality& quality)
{
    const Rectangle& r = region.rectangle;
    Json groups = Json::array();
    for (const NoiseGroup& group : quality.groups)
        groups.push_back({{"amplitude", group.amplitude},
                          {"amplitude-variance", group.amplitudeVariance},
                          {"depth-noise", group.depthNoise}});
    return {{"name", region.name},
            {"x", r.x},
            {"y", r.y},
            {"width", r.width},
            {"height", r.height},
            {"metrics", figuresJson(quality.figures)},
            {"change", course(quality.change, [](const std::optional<double>& value) { return value; })},
            {"noise-by-amplitude", std::move(groups)}};
}

[[noreturn]] void refuse(const std::string& file, const std::string& what)
{
    throw Failure(kUsage, file + ": " + what);
}

std::string textOr(const Json& json, const char* otherwise)
{
    return json.is_string() ? plain(json.get<std::string>()) : otherwise;
}

Figure figureFrom(const Json& json, const MetricRow& row, const std::string& file)
{
    const std::string name = std::string("\"") + row.name + "\"";
    const Json value = json.is_object() ? json.value("value", Json()) : Json();
    const Json reason = json.is_object() ? json.value("reason", Json()) : Json();
    if (json.is_object() && value.is_null())
        return {std::nullopt, textOr(reason, "the file does not say why")};
    if (!value.is_number() || !(std::abs(value.get<double>()) <= kMost))
        refuse(file, "the value of " + name + " is not a number that can be one");
    if (json.value("unit", Json()) != row.unit)
        refuse(file, "the unit of " + name + " is not " + row.unit);
    return {value.get<double>()};
}

QualityReport::Region regionFrom(const Json& json, const std::string& file)
{
    const Json name = json.is_object() ? json.value("name", Json()) : Json();
    const Json metrics = json.is_object() ? json.value("metrics", Json()) : Json();
    if (!name.is_string() || !metrics.is_object())
        refuse(file, "a region has no \"name\" or no \"metrics\"");
    QualityReport::Region region{textOr(name, ""), {}};
    for (const MetricRow& row : allMetrics())
        region.figures[static_cast<size_t>(row.metric)] = metrics.contains(row.name)
                                                              ? figureFrom(metrics[row.name], row, file)
                                                              : Figure{{}, "the file has no such value"};
    return region;
}

} // namespace

Json figuresJson(const std::array<Figure, kMetricCount>& figures)
{
    Json json = Json::object();
    for (const MetricRow& row : allMetrics()) {
        const Figure& figure = figures[static_cast<size_t>(row.metric)];
        json[row.name] = {{"value", figure.value ? Json(*figure.value) : Json()}, {"unit", row.unit}};
        if (!figure.value)
            json[row.name]["reason"] = figure.reason;
        if (figure.uncertainty)
            json[row.name]["uncertainty"] = *figure.uncertainty;
    }
    return json;
}

Json qualityJson(const QualitySource& source, const QualityOptions& options, std::span<const RegionQuality> regions)
{
    const QualityRun& run = *source.run;
    Json json = document("quality");
    json["camera"] = source.camera;
    json["files"] = options.files;
    json["time"] = source.time;
    json["settings"] = source.settings;
    json["frames"] = run.frames();
    json["seconds"] = run.seconds().back() - run.seconds().front();
    json["known-distance"] = options.distance ? Json(*options.distance) : Json();
    json["temperature"] = temperatureJson(run.temperatures());
    json["course"] = {{"seconds", course(run.seconds(), finiteOrNone)},
                      {"temperature", course(run.temperatures(), finiteOrNone)}};
    json["regions"] = Json::array();
    for (size_t i = 0; i < regions.size(); ++i)
        json["regions"].push_back(regionJson(options.regions[i], regions[i]));
    return json;
}

QualityReport readQuality(const std::string& file)
{
    const Json json = readDocument(file, "quality");
    QualityReport report;
    report.file = file;
    const Json camera = json.value("camera", Json()), distance = json.value("known-distance", Json()),
               regions = json.value("regions", Json());
    const Json serial = camera.is_object() ? camera.value("serial", Json()) : Json();
    report.serial = textOr(serial, "unknown");
    if (!distance.is_null() && !(distance.is_number() && distance.get<double>() > 0 && distance.get<double>() <= kMost))
        refuse(file, "\"known-distance\" is not a number above 0 that can be one");
    if (distance.is_number())
        report.distance = distance.get<double>();
    if (!regions.is_array() || regions.empty() || regions.size() > kMostRegions)
        refuse(file, "\"regions\" is not an array of 1 to " + std::to_string(kMostRegions) + " regions");
    for (const Json& region : regions)
        report.regions.push_back(regionFrom(region, file));
    return report;
}
