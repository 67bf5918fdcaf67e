// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd quality: how good depth is, of a camera or a recording, and several runs over the distance.
#include <algorithm>
#include <charconv>
#include <memory>

#include <CLI/CLI.hpp>

#include "host/formatted.h"

#include "amounts.h"
#include "command_line.h"
#include "options.h"
#include "output.h"
#include "quality_json.h"
#include "quality_page.h"
#include "sim_preload.h"

namespace
{

struct Options : QualityOptions {
    std::vector<std::string> regionTexts, requirementTexts;
    std::string time, distanceText, page;
    bool merge = false;
    Invocation invocation;
};

// "[NAME=]X,Y,WIDTH,HEIGHT" in pixels, inside the image.
QualityRegion regionOf(const std::string& text, size_t number)
{
    const size_t equals = text.rfind('=');
    const bool isNamed = equals != std::string::npos;
    const std::string name = isNamed ? text.substr(0, equals) : "region " + std::to_string(number);
    if (name.empty() || name.size() > kMostRegionName)
        throw Failure(kUsage,
                      "'" + text + "': the name of a region has 1 to " + std::to_string(kMostRegionName) + " bytes");
    Rectangle r{};
    const char* at = text.data() + (isNamed ? equals + 1 : 0);
    const char* const end = text.data() + text.size();
    for (int* value : {&r.x, &r.y, &r.width, &r.height}) {
        const auto [rest, error] = std::from_chars(at, end, *value);
        const bool isLast = value == &r.height;
        if (error != std::errc{} || (isLast ? rest != end : rest == end || *rest != ','))
            throw Failure(kUsage, "'" + text + "' is not of the form X,Y,WIDTH,HEIGHT or NAME=X,Y,WIDTH,HEIGHT");
        at = rest + 1;
    }
    if (r.x < 0 || r.y < 0 || r.x >= VQD_WIDTH || r.y >= VQD_HEIGHT || r.width < 1 || r.height < 1 ||
        r.width > VQD_WIDTH - r.x || r.height > VQD_HEIGHT - r.y)
        throw Failure(kUsage, formatted("'%s': the region is empty or not inside the image of %d x %d pixels",
                                        text.c_str(), VQD_WIDTH, VQD_HEIGHT));
    return {name, r};
}

std::vector<QualityRegion> regionsOf(const std::vector<std::string>& texts)
{
    if (texts.size() > kMostRegions)
        throw Failure(kUsage, "there may be at most " + std::to_string(kMostRegions) + " regions");
    std::vector<QualityRegion> regions;
    for (const std::string& text : texts) {
        regions.push_back(regionOf(text, regions.size() + 1));
        if (std::ranges::count(regions, regions.back().name, &QualityRegion::name) > 1)
            throw Failure(kUsage, "two regions are called " + regions.back().name);
    }
    if (regions.empty())
        regions.push_back({"image", {0, 0, VQD_WIDTH, VQD_HEIGHT}});
    return regions;
}

std::vector<Requirement> requirementsOf(const std::vector<std::string>& texts, const std::vector<std::string>& regions)
{
    std::vector<Requirement> requirements;
    for (const std::string& text : texts)
        requirements.push_back(requirementOf(text, regions));
    return requirements;
}

// What all ways end with: the result, the page, and whether the requirements are met.
int finish(const Options& options, Output& output, Json json, const std::string& table, const std::string& page,
           const std::vector<Verdict>& verdicts)
{
    const bool allMet = std::ranges::all_of(verdicts, &Verdict::isMet);
    json["requirements"] = verdictsJson(verdicts);
    json["met"] = verdicts.empty() ? Json() : Json(allMet);
    if (!options.page.empty())
        writeFile(options.page, std::span(reinterpret_cast<const uint8_t*>(page.data()), page.size()), existing());
    output.finish(json, table + verdictLines(verdicts));
    return allMet ? kDone : kNotMet;
}

int mergeRuns(const Options& options)
{
    std::vector<QualityReport> reports;
    std::vector<std::string> regions;
    for (const std::string& file : options.files) {
        reports.push_back(readQuality(file));
        for (const QualityReport::Region& region : reports.back().regions)
            if (std::ranges::find(regions, region.name) == regions.end())
                regions.push_back(region.name);
    }
    const std::vector<Requirement> requirements = requirementsOf(options.requirementTexts, regions);
    const std::vector<QualityCurve> curves = curvesOf(reports);
    std::vector<Verdict> verdicts;
    for (const QualityReport& report : reports)
        for (const Verdict& verdict : judge(requirements, report))
            verdicts.push_back(verdict);
    Output output;
    return finish(options, output, curvesJson(curves), curvesText(curves), mergedPage(curves, verdicts), verdicts);
}

std::string headline(const QualitySource& source)
{
    const auto text = [&](const char* name) {
        return source.camera[name].is_string() ? source.camera[name].get<std::string>() : "unknown";
    };
    const QualityRun& run = *source.run;
    return formatted("%s, serial %s: %zu frames in %.1f s, sensor at %.1f to %.1f degrees\n", text("product").c_str(),
                     text("serial").c_str(), run.frames(), run.seconds().back() - run.seconds().front(),
                     run.temperatures().front(), run.temperatures().back());
}

int measureRun(Options options)
{
    options.regions = regionsOf(options.regionTexts);
    std::vector<std::string> names;
    for (const QualityRegion& region : options.regions)
        names.push_back(region.name);
    const std::vector<Requirement> requirements = requirementsOf(options.requirementTexts, names);
    if (!options.files.empty())
        enterPreload(options.invocation.arguments);
    Output output;
    const QualitySource source = options.files.empty() ? measureCamera(options) : measureRecording(options);
    std::vector<RegionQuality> qualities;
    QualityReport report;
    std::vector<QualityColumn> columns;
    for (size_t i = 0; i < options.regions.size(); ++i) {
        qualities.push_back(source.run->of(i, options.distance));
        report.regions.push_back({options.regions[i].name, qualities.back().figures});
    }
    for (const QualityReport::Region& region : report.regions)
        columns.push_back({region.name, &region.figures});
    const std::vector<Verdict> verdicts = judge(requirements, report);
    return finish(options, output, qualityJson(source, options, qualities), headline(source) + qualityTable(columns),
                  qualityPage(source, options, qualities, verdicts), verdicts);
}

int quality(Options options)
{
    constexpr uint64_t kFrames = 100; // of a camera, unless the command line says otherwise
    if (!options.distanceText.empty())
        options.distance = distanceIn(options.distanceText);
    options.seconds = options.time.empty() ? 0 : secondsIn(options.time).value_or(0);
    if (options.files.empty() && options.frames == 0 && options.seconds == 0)
        options.frames = kFrames;
    if (!options.page.empty())
        requireWritableFile(options.page, existing());
    return options.merge ? mergeRuns(options) : measureRun(std::move(options));
}

} // namespace

void addQuality(CLI::App& app, Run& run, const Invocation& invocation)
{
    CLI::App* command = app.add_subcommand("quality", "Measures how good depth is: noise, plane, fixed pattern, drift");
    const auto options = std::make_shared<Options>();
    options->invocation = invocation;
    command
        ->add_option("FILE", options->files,
                     "A recording instead of a camera, or all of its parts; with --merge, what it merges")
        ->type_name("FILE")
        ->check(notEmpty);
    CLI::Option* frames =
        command->add_option("-n,--frames", options->frames, "Number of frames (default 100; of a recording all)")
            ->check(CLI::Range(1, 100'000'000));
    CLI::Option* time =
        command->add_option("--for", options->time, "How long it measures, such as 10min while a camera warms up")
            ->type_name("TIME")
            ->check(
                [](const std::string& text) { return secondsIn(text).value_or(0) > 0 ? "" : text + " is no time"; });
    CLI::Option* region = addRepeatable(*command, "--region", options->regionTexts, "[NAME=]X,Y,WIDTH,HEIGHT",
                                        "A part of the image in pixels, up to 8 of them (default the whole image)");
    CLI::Option* distance =
        command->add_option("--distance", options->distanceText, "Known distance of the plane along the optical axis")
            ->type_name("LENGTH")
            ->check([](const std::string& text) {
                return distanceIn(text) ? "" : "'" + text + "' is no distance, such as 1500 or 1.5m";
            });
    addRepeatable(*command, "--require", options->requirementTexts, "[REGION:]METRIC<VALUE",
                  "What must hold, such as noise<5mm or fill-rate>95%; the exit code is 7 when it does not")
        ->check(notEmpty);
    command->add_option("--html", options->page, "Also write a page with plots")->type_name("FILE")->check(notEmpty);
    CLI::Option* settings = addRepeatable(*command, "-s,--set", options->settings, "KEY=VALUE",
                                          "A setting for this run only, as in vqd set");
    CLI::Option* range =
        command->add_option("--range", options->range, "Only these frames of a recording: 100:200, or 2.5s:10s")
            ->type_name("[FROM]:[TO]");
    command->add_flag("--merge", options->merge, "Merge files that --json has made into curves over the distance")
        ->excludes(frames)
        ->excludes(time)
        ->excludes(region)
        ->excludes(distance)
        ->excludes(settings)
        ->excludes(range);
    addCommon(*command, kCamera | kJson | kForce | kProfile);
    command->footer(
        "Put a flat surface that stands still in front of the camera. For this run, undistortion=0 and remove-edge=0 "
        "are\n"
        "set, and fppn=0 and orthogonal=0 for models that the host corrects, unless -s says otherwise.\n"
        "docs/quality.md defines every figure.\n"
        "Example: vqd quality --distance 1500 --html wall.html\n"
        "Example: vqd quality --region middle=120,80,80,80 --require \"noise<5mm\" --require \"bias<10mm\"\n"
        "Example: vqd quality --for 20min --html warm-up.html\n"
        "Example: vqd quality --merge 1000.json 2000.json 3000.json --html curves.html");
    command->callback([&run, options] {
        if (options->merge && options->files.empty())
            throw CLI::ValidationError("--merge", "it needs files");
        if (!options->range.empty() && options->files.empty())
            throw CLI::ValidationError("--range", "it needs a recording");
        run = [options] { return quality(*options); };
    });
}
