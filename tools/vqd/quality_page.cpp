// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The text of the pages. Names come from the command line, from files and from cameras, so all of them are escaped.
#include "quality_page.h"

#include <algorithm>
#include <cmath>

#include "host/formatted.h"

#include "quality_maps.h"
#include "svg_plot.h"

namespace
{

constexpr char kHead[] = R"(<!doctype html>
<html lang="en">
<meta charset="utf-8">
<meta name="viewport" content="width=device-width">
<meta name="color-scheme" content="light dark">
<title>Depth quality</title>
<style>
:root { --page: #eef0f3; --card: #fff; --line: #d3d8df; --text: #18202b; --faint: #5b6675; --bad: #b3261e; --good: #18794e;
    --c0: #1971c2; --c1: #d9480f; --c2: #2b8a3e; --c3: #9c36b5; --c4: #c2255c; --c5: #0b7285; --c6: #8a6d00; --c7: #495057; }
@media (prefers-color-scheme: dark) {
    :root { --page: #10141a; --card: #181e27; --line: #323c4a; --text: #e6eaf0; --faint: #99a5b5; --bad: #ff8a80; --good: #5fd39a;
        --c0: #4dabf7; --c1: #ff922b; --c2: #69db7c; --c3: #da77f2; --c4: #f783ac; --c5: #3bc9db; --c6: #ffd43b; --c7: #ced4da; }
}
body { margin: 0 auto; padding: 16px 20px; max-width: 1460px; background: var(--page); color: var(--text); font: 14px/1.45 system-ui, sans-serif; }
h1 { font-size: 20px; margin: 0 0 4px; } h2 { font-size: 15px; margin: 18px 0 6px; }
p { margin: 0 0 6px; } .faint, figcaption, small { color: var(--faint); }
.card, figure { background: var(--card); border: 1px solid var(--line); border-radius: 7px; }
.card { padding: 8px 12px; overflow-x: auto; width: fit-content; max-width: 100%; box-sizing: border-box; }
.row { display: grid; grid-template-columns: repeat(auto-fill, minmax(min(440px, 100%), 1fr)); gap: 12px; }
figure { margin: 0; padding: 8px; } figcaption { font-size: 12px; min-height: 1.4em; } svg { display: block; width: 100%; height: auto; }
table { border-collapse: collapse; } th { font-weight: 400; text-align: left; } thead th { color: var(--faint); }
thead th { text-align: right; }
td, th { padding: 2px 10px 2px 0; border-bottom: 1px solid var(--line); white-space: nowrap; vertical-align: top; }
td { text-align: right; font-variant-numeric: tabular-nums; } td.why { white-space: normal; min-width: 120px; max-width: 220px; font-size: 12px; color: var(--faint); }
.met { color: var(--good); } .unmet { color: var(--bad); font-weight: 600; }
.grid { stroke: var(--line); stroke-width: 1; fill: none; } .tick, .label { fill: var(--faint); font-size: 11px; } .title { fill: var(--text); font-size: 13px; font-weight: 600; }
.line { fill: none; stroke: currentColor; stroke-width: 1.8; stroke-linejoin: round; } .dots { fill: currentColor; fill-opacity: .75; }
.c0 { color: var(--c0); } .c1 { color: var(--c1); } .c2 { color: var(--c2); } .c3 { color: var(--c3); } .c4 { color: var(--c4); } .c5 { color: var(--c5); } .c6 { color: var(--c6); } .c7 { color: var(--c7); }
.key::before { content: "\25CF\00A0"; } .key { margin-right: 10px; white-space: nowrap; }
.maptitle { font-size: 13px; font-weight: 600; } .map img { display: block; width: 100%; height: auto; image-rendering: pixelated; }
.scale { display: flex; gap: 8px; align-items: center; margin-top: 6px; } .scale i { flex: 1; height: 9px; border-radius: 3px; }
</style>
)";

constexpr char kNote[] =
    "<p class=\"faint\">The figures are defined in the documentation of vqd quality. They are measured by this "
    "program's own methods, and claim no conformity to a standard.</p>\n";

std::string uncertaintyOf(const MetricRow& row, const Figure& figure)
{
    return figure.uncertainty ? formatted(" <small>± %.*f</small>", row.decimals, *figure.uncertainty) : "";
}

std::string rowsOf(const std::vector<QualityColumn>& columns)
{
    std::string html = "<div class=\"card\"><table><thead><tr><th></th>";
    for (const QualityColumn& column : columns)
        html += "<th>" + escaped(column.title) + "</th>";
    html += "</tr></thead><tbody>\n";
    for (const MetricRow& row : allMetrics()) {
        html += std::string("<tr><th>") + row.label + "</th>";
        for (const QualityColumn& column : columns) {
            const Figure& figure = (*column.figures)[static_cast<size_t>(row.metric)];
            html += figure.value
                        ? "<td>" + escaped(figureText(row.metric, figure)) + uncertaintyOf(row, figure) + "</td>"
                        : "<td class=\"why\">" + escaped(figure.reason) + "</td>";
        }
        html += "</tr>\n";
    }
    return html + "</tbody></table></div>\n";
}

std::string verdictsOf(std::span<const Verdict> verdicts)
{
    if (verdicts.empty())
        return {};
    std::string html = "<h2>Requirements</h2>\n<div class=\"card\"><table><tbody>\n";
    for (const Verdict& verdict : verdicts)
        html += formatted("<tr><th class=\"%s\">%s</th>", verdict.isMet ? "met" : "unmet",
                          verdict.isMet ? "met" : "not met") +
                "<th>" + escaped(verdict.requirement->text) + "</th><th>" + escaped(verdict.region) +
                (verdict.file.empty() ? "" : ", " + escaped(verdict.file)) + "</th><td>" +
                escaped(verdict.figure.value ? figureText(verdict.requirement->metric, verdict.figure)
                                             : verdict.figure.reason) +
                "</td></tr>\n";
    return html + "</tbody></table></div>\n";
}

// Few enough points for a page, each the first of those that it stands for.
template <typename ValueOf> PlotLine courseLine(const QualityRun& run, ValueOf valueOf)
{
    constexpr size_t kMostPoints = 600;
    PlotLine line{"", 0, false, {}};
    const size_t step = (run.frames() + kMostPoints - 1) / kMostPoints;
    for (size_t frame = 0; frame < run.frames(); frame += step)
        line.points.push_back({run.seconds()[frame], valueOf(frame)});
    return line;
}

double value(const RegionQuality& quality, Metric metric)
{
    return quality.of(metric).value.value_or(0);
}

std::string plotsOf(const QualityRun& run, std::span<const QualityRegion> regions,
                    std::span<const RegionQuality> qualities)
{
    Plot change{"Depth over time", "time in s", "change in mm", {}},
        temperature{"Sensor temperature", "time in s", "temperature in °C", {}};
    Plot depth{"Depth noise over amplitude", "amplitude in counts", "noise in mm", {}, true};
    Plot light{"Amplitude variance over amplitude", "amplitude in counts", "variance in counts²", {}, true};
    temperature.lines.push_back(courseLine(run, [&](size_t frame) { return run.temperatures()[frame]; }));
    for (size_t i = 0; i < qualities.size(); ++i) {
        const RegionQuality& quality = qualities[i];
        const int colour = static_cast<int>(i);
        change.lines.push_back(courseLine(run, [&](size_t frame) { return quality.change[frame]; }));
        change.lines.back().name = regions[i].name;
        change.lines.back().colour = colour;
        // The rounding is in what was measured, but not in the figures.
        PlotLine depths{regions[i].name, colour, true, {}}, depthFit{"", colour, false, {}};
        PlotLine variances{regions[i].name, colour, true, {}}, varianceFit{"", colour, false, {}};
        for (const NoiseGroup& group : quality.groups) {
            const double a = group.amplitude, phase = value(quality, Metric::phase) / a;
            depths.points.push_back({a, group.depthNoise});
            depthFit.points.push_back(
                {a, std::sqrt(std::pow(value(quality, Metric::jitter), 2) + phase * phase + kRounding)});
            variances.points.push_back({a, group.amplitudeVariance});
            varianceFit.points.push_back(
                {a, value(quality, Metric::readOut) + value(quality, Metric::shot) * a + kRounding});
        }
        depth.lines.insert(depth.lines.end(), {depths, depthFit});
        light.lines.insert(light.lines.end(), {variances, varianceFit});
    }
    return svgOf(change) + svgOf(temperature) + svgOf(depth) + svgOf(light);
}

std::string text(const Json& json)
{
    return escaped(json.is_string() ? json.get<std::string>() : "unknown");
}

std::string conditionsOf(const QualitySource& source, const QualityOptions& options)
{
    const QualityRun& run = *source.run;
    const auto [coldest, warmest] = std::ranges::minmax(run.temperatures());
    std::string html = "<p>" + text(source.camera["product"]) + ", serial " + text(source.camera["serial"]) + ", " +
                       escaped(source.time) +
                       formatted(": %zu frames in %.1f s, sensor at %.1f to %.1f °C", run.frames(),
                                 run.seconds().back() - run.seconds().front(), coldest, warmest);
    if (options.distance)
        html += formatted(", known distance %.1f mm", *options.distance);
    for (const std::string& file : options.files)
        html += ", " + escaped(file);
    html += "</p>\n<p class=\"faint\">";
    for (const auto& [name, setting] : source.settings.items())
        html += escaped(name + " " + setting.dump()) + "&ensp;";
    return html + "</p>\n";
}

} // namespace

std::string qualityPage(const QualitySource& source, const QualityOptions& options,
                        std::span<const RegionQuality> regions, std::span<const Verdict> verdicts)
{
    std::vector<QualityColumn> columns;
    for (size_t i = 0; i < regions.size(); ++i)
        columns.push_back({options.regions[i].name, &regions[i].figures});
    return std::string(kHead) + "<h1>Depth quality</h1>\n" + conditionsOf(source, options) + verdictsOf(verdicts) +
           "<h2>Figures</h2>\n" + rowsOf(columns) + "<h2>Course, noise and images</h2>\n<div class=\"row\">\n" +
           plotsOf(*source.run, options.regions, regions) + qualityMaps(*source.run, options.regions, regions) +
           "</div>\n" + kNote + "</html>\n";
}

std::string mergedPage(std::span<const QualityCurve> curves, std::span<const Verdict> verdicts)
{
    std::string plots, tables;
    for (const MetricRow& row : allMetrics()) {
        Plot plot{row.label, "distance in mm", row.unit, {}, row.metric != Metric::distance};
        for (size_t i = 0; i < curves.size(); ++i) {
            PlotLine line{curves[i].name(), static_cast<int>(i), false, {}};
            for (const QualityCurve::Point& point : curves[i].points)
                line.points.push_back({point.distance, point.figures[static_cast<size_t>(row.metric)].value});
            PlotLine dots = line;
            dots.isDots = true;
            dots.name.clear();
            plot.lines.insert(plot.lines.end(), {line, dots});
        }
        plots += svgOf(plot);
    }
    for (const QualityCurve& curve : curves) {
        std::vector<QualityColumn> columns;
        for (const QualityCurve::Point& point : curve.points)
            columns.push_back({formatted("%.0f mm", point.distance), &point.figures});
        tables += "<h2>" + escaped(curve.name()) + "</h2>\n" + rowsOf(columns);
    }
    return std::string(kHead) + "<h1>Depth quality over the distance</h1>\n" + verdictsOf(verdicts) +
           "<h2>Curves</h2>\n<div class=\"row\">\n" + plots + "</div>\n" + tables + kNote + "</html>\n";
}
