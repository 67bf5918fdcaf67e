// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd grab: grabs frames and keeps the last one as pictures, or every one in a format for programs.
#include <memory>

#include <CLI/CLI.hpp>

#include "all_cameras.h"
#include "cameras.h"
#include "cloud_options.h"
#include "command_line.h"
#include "commands.h"
#include "frame_files.h"
#include "grab.h"
#include "options.h"
#include "output.h"
#include "progress.h"
#include "settings_apply.h"

namespace
{

int grab(const GrabOptions& options)
{
    std::vector<Assignment> assignments = parseForFrames(options.settings);
    Output output;
    const Cameras cameras;
    const ListedCamera& camera = assignments.empty() ? cameras.choose() : cameras.chooseToChange();
    requireRoomForFiles(options);
    cameras.loadWithProfile(camera);
    if (!options.cloud.empty())
        assignments = cloudSettings(camera, options.settings);
    const auto frame = std::make_unique<DepthFrame>();
    Stream stream(camera);
    applySettings(camera, assignments);
    if (!assignments.empty())
        stream.read(*frame); // it may have been exposed with the settings before
    const int n = camera.nIndex;
    GrabReport report{identityJson(camera), {}, {}, Arrivals(nominalInterval(n)), 0};
    const auto read = [&](DepthFrame& into) {
        const auto began = Arrivals::Clock::now();
        const bool reopened = stream.read(into);
        return report.arrivals.add(began, Arrivals::Clock::now(), reopened);
    };
    Progress progress("frame", options.frames);
    grabFrames(options, read, *frame, [&](int done) { progress.show(done); });
    report.temperature = settingByName("temperature").get(n);
    report.logicVersion = settingByName("logic-version").get(n);
    report.depth = centreDepth(*frame);
    Json json = document("grab");
    json.update(reportJson(options, report));
    output.finish(json, reportText(options, report));
    return kDone;
}

} // namespace

void addGrab(CLI::App& app, Run& run)
{
    CLI::App* command =
        app.add_subcommand("grab", "Grabs frames and keeps the last one as PNG pictures, or all of them");
    const auto options = std::make_shared<GrabOptions>();
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
    addCommon(*command, kCamera | kAllCameras | kJson | kForce | kProfile);
    command->footer(
        "raw: 320 x 240 values of 16 bits, low byte first, rows from the top. npy: NumPy 1.0.\n"
        "csv: a line of decimal numbers for each row.\n"
        "Depth is in mm; 0 is invalid. frames.csv has a line for each frame: host time, stamp, re-opened, frames lost\n"
        "before it.\n"
        "A directory holds one series, and --force replaces the whole series.\n"
        "-c all grabs from every camera at the same time, each by way of a worker and into a directory named by its\n"
        "serial number; point clouds are made of one camera only.\n"
        "Example: vqd grab -n 30 -o pictures\n"
        "Example: vqd grab -n 100 --format npy --cloud pcd -o series");
    command->callback(
        [&run, options] { run = [options] { return allCamerasChosen() ? grabAll(*options) : grab(*options); }; });
}
