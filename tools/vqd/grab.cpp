// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd grab: grabs frames and keeps the last one as pictures, or every one in a format for programs.
#include <algorithm>
#include <memory>
#include <optional>

#include <CLI/CLI.hpp>

#include "host/arrivals.h"
#include "host/formatted.h"

#include "cameras.h"
#include "cloud_options.h"
#include "command_line.h"
#include "commands.h"
#include "frame_files.h"
#include "messages.h"
#include "options.h"
#include "output.h"
#include "progress.h"
#include "series.h"
#include "settings_apply.h"

namespace
{

struct Options {
    int frames = 1;
    std::string directory = ".";
    std::vector<std::string> settings;
    std::string format, cloud;
    Axes axes = Axes::optical;
};

// Reads all frames and hands them to the series, if there is one. The last frame stays in `frame`.
void readFrames(Stream& stream, int count, DepthFrame& frame, Arrivals& arrivals, Series* series)
{
    Progress progress("frame", count);
    for (int i = 1; i <= count; ++i) {
        const auto began = Arrivals::Clock::now();
        const bool reopened = stream.read(frame);
        const Arrival arrival = arrivals.add(began, Arrivals::Clock::now(), reopened);
        if (series != nullptr)
            series->add(frame, arrival);
        progress.show(i);
    }
}

// The median of the valid pixels among the 5 x 5 at the centre; 0 when none is valid.
unsigned centreDepth(const DepthFrame& frame)
{
    std::vector<uint16_t> valid;
    for (int y = VQD_HEIGHT / 2 - 2; y <= VQD_HEIGHT / 2 + 2; ++y)
        for (int x = VQD_WIDTH / 2 - 2; x <= VQD_WIDTH / 2 + 2; ++x)
            if (const uint16_t depth = frame.depth[VQD_WIDTH * y + x]; depth != 0)
                valid.push_back(depth);
    if (valid.empty())
        return 0;
    const auto middle = valid.begin() + static_cast<std::ptrdiff_t>(valid.size() / 2);
    std::nth_element(valid.begin(), middle, valid.end());
    return *middle;
}

Json summaryJson(const ListedCamera& camera, const Options& options, const Arrivals& arrivals, unsigned depth)
{
    const int n = camera.nIndex;
    const auto known = [](auto value) { return value > 0 ? Json(value) : Json(); };
    Json json = document("grab");
    json["camera"] = identityJson(camera);
    json["temperature"] = settingByName("temperature").get(n);
    json["logic-version"] = settingByName("logic-version").get(n);
    json["frames"] = options.frames;
    json["frames-per-second"] = known(arrivals.rate());
    json["lost-estimate"] = arrivals.lost();
    json["reopens"] = arrivals.reopens();
    json["longest-gap"] = known(arrivals.longest());
    json["centre-depth"] = known(depth);
    json["directory"] = options.directory;
    return json;
}

std::string summaryText(const ListedCamera& camera, const Options& options, const Arrivals& arrivals, unsigned depth)
{
    const int n = camera.nIndex;
    std::string text = formatted("camera %d: %s, serial %s, USB %s\n", n, camera.szDeviceName, camera.szSerialNumber,
                                 usbIds(camera).c_str());
    text += formatted("sensor temperature %.1f, logic version %u.%u\n", m_dTemperature[n], m_nLogicver[0][n],
                      m_nLogicver[1][n]);
    text += formatted("%d frame%s", options.frames, options.frames == 1 ? "" : "s");
    if (arrivals.rate() > 0)
        text += formatted(", %.1f frames per second", arrivals.rate());
    text += '\n';
    if (arrivals.lost() > 0 || arrivals.reopens() > 0)
        text += formatted("gaps: re-opens %d, frames lost about %d, the longest gap %.1f s\n", arrivals.reopens(),
                          arrivals.lost(), arrivals.longest());
    return text + (depth > 0 ? formatted("depth at the centre %u mm\n", depth) : "no valid depth at the centre\n");
}

std::string filesText(const Options& options)
{
    const bool series = !options.format.empty();
    std::string text = series ? formatted("every frame in %s: depth-*.%s, amplitude-*.%s, frames.csv\n",
                                          options.directory.c_str(), options.format.c_str(), options.format.c_str())
                              : "pictures in " + options.directory +
                                    ": depth.png, amplitude.png; exact values: depth16.png, amplitude16.png\n";
    if (!options.cloud.empty())
        text += series ? "point clouds: points-*." + options.cloud + '\n'
                       : "point cloud: points." + options.cloud + ", seen in points.png\n";
    return text;
}

// A series that ends early keeps the frames that it has.
[[noreturn]] void failSeries(const Failure& failure, const Options& options, int kept)
{
    const bool stopped = failure.code == kInterrupted;
    throw Failure(stopped ? kFailed : failure.code, (stopped ? "interrupted" : failure.what()) + std::string("; ") +
                                                        std::to_string(kept) + " of " + std::to_string(options.frames) +
                                                        " frames are complete in " + options.directory);
}

void readSeries(Stream& stream, const Options& options, DepthFrame& frame, Arrivals& arrivals)
{
    Series series(options.directory, {options.format, options.cloud, options.axes});
    std::optional<Failure> failure;
    try {
        readFrames(stream, options.frames, frame, arrivals, &series);
    } catch (const Failure& caught) {
        failure = caught;
    }
    try {
        series.finish();
    } catch (const Failure& caught) { // if reading failed too, then for this reason
        failure = caught;
    }
    if (failure && series.kept() == 0)
        throw Failure(*failure);
    if (failure)
        failSeries(*failure, options, series.kept());
    if (series.heldUp())
        note("writing %s was at times slower than the camera; frames.csv shows where frames are missing",
             options.format.c_str());
}

int grab(const Options& options)
{
    std::vector<Assignment> assignments = parseForFrames(options.settings);
    const std::vector<FrameFile> pictures =
        options.format.empty() ? pictureFiles(options.cloud, options.axes) : std::vector<FrameFile>();
    Output output;
    const Cameras cameras;
    const ListedCamera& camera = assignments.empty() ? cameras.choose() : cameras.chooseToChange();
    requireWritableDirectory(options.directory);
    requireNewFiles(options.directory, pictures);
    if (!options.format.empty())
        requireNoSeries(options.directory);
    cameras.loadWithProfile(camera);
    if (!options.cloud.empty())
        assignments = cloudSettings(camera, options.settings);
    const auto frame = std::make_unique<DepthFrame>();
    Stream stream(camera);
    applySettings(camera, assignments);
    if (!assignments.empty())
        stream.read(*frame); // it may have been exposed with the settings before
    Arrivals arrivals(nominalInterval(camera.nIndex));
    if (options.format.empty())
        readFrames(stream, options.frames, *frame, arrivals, nullptr);
    else
        readSeries(stream, options, *frame, arrivals);
    writeFiles(options.directory, pictures, *frame);
    const unsigned depth = centreDepth(*frame);
    output.finish(summaryJson(camera, options, arrivals, depth),
                  summaryText(camera, options, arrivals, depth) + filesText(options));
    return kDone;
}

} // namespace

void addGrab(CLI::App& app, Run& run)
{
    CLI::App* command =
        app.add_subcommand("grab", "Grabs frames and keeps the last one as PNG pictures, or all of them");
    const auto options = std::make_shared<Options>();
    command->add_option("-n,--frames", options->frames, "Number of frames")
        ->check(CLI::Range(1, 100'000'000))
        ->capture_default_str();
    command->add_option("-o,--output", options->directory, "Directory for the files; created if need be")
        ->type_name("DIR")
        ->check(notEmpty)
        ->capture_default_str();
    command
        ->add_option("--format", options->format,
                     "Keep the exact values of every frame: depth-000001.FORMAT, amplitude-000001.FORMAT, ...")
        ->check(CLI::IsMember(seriesFormats()));
    command
        ->add_option("--cloud", options->cloud,
                     "Also write point clouds, true to scale; all files of this grab are then undistorted")
        ->check(CLI::IsMember(cloudFormatNames()))
        ->expected(0, 1)
        ->default_str("ply");
    addRepeatable(*command, "-s,--set", options->settings, "KEY=VALUE", "A setting for this grab only, as in vqd set");
    addAxes(*command, options->axes);
    addCommon(*command, kCamera | kJson | kForce | kProfile);
    command->footer(
        "raw: 320 x 240 values of 16 bits, low byte first, rows from the top. npy: NumPy 1.0.\n"
        "Depth is in mm; 0 is invalid. frames.csv has a line for each frame: host time, stamp, re-opened, frames lost\n"
        "before it.\n"
        "A directory holds one series, and --force replaces the whole series.\n"
        "Example: vqd grab -n 30 -o pictures\n"
        "Example: vqd grab -n 100 --format npy --cloud pcd -o series");
    command->callback([&run, options] { run = [options] { return grab(*options); }; });
}
