// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "quality_merge.h"

#include <algorithm>
#include <map>

#include "host/documents.h"
#include "host/formatted.h"

#include "quality_json.h"

std::vector<QualityCurve> curvesOf(std::span<const QualityReport> reports)
{
    std::map<std::pair<std::string, std::string>, QualityCurve> curves;
    for (const QualityReport& report : reports)
        for (const QualityReport::Region& region : report.regions) {
            const Figure& plane = region.figures[static_cast<size_t>(Metric::distance)];
            if (!report.distance && !plane.value)
                throw Failure(kUsage, report.file + ": no distance of the region " + region.name +
                                          " is known; --distance gives one");
            QualityCurve& curve = curves[{report.serial, region.name}];
            curve.serial = report.serial;
            curve.region = region.name;
            curve.points.push_back({report.distance ? *report.distance : *plane.value, report.file, region.figures});
        }
    std::vector<QualityCurve> sorted;
    for (auto& [key, curve] : curves) {
        std::ranges::stable_sort(curve.points, {}, &QualityCurve::Point::distance);
        sorted.push_back(std::move(curve));
    }
    return sorted;
}

std::string curvesText(std::span<const QualityCurve> curves)
{
    std::string text;
    for (const QualityCurve& curve : curves) {
        std::vector<QualityColumn> columns;
        for (const QualityCurve::Point& point : curve.points)
            columns.push_back({formatted("%.0f mm", point.distance), &point.figures});
        text += (text.empty() ? "" : "\n") + curve.name() + ", over the distance\n" + qualityTable(columns);
    }
    return text;
}

Json curvesJson(std::span<const QualityCurve> curves)
{
    Json json = document("quality-merge");
    json["curves"] = Json::array();
    for (const QualityCurve& curve : curves) {
        Json points = Json::array();
        for (const QualityCurve::Point& point : curve.points)
            points.push_back(
                {{"distance", point.distance}, {"file", point.file}, {"metrics", figuresJson(point.figures)}});
        json["curves"].push_back({{"serial", curve.serial}, {"region", curve.region}, {"points", std::move(points)}});
    }
    return json;
}
