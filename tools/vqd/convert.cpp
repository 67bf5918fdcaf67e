// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd convert: makes the images of a recording anew, and writes them as files or as a stream.
#include <memory>

#include <CLI/CLI.hpp>

#include "host/formatted.h"
#include "host/host_time.h"
#include "recording/layout.h"

#include "cloud_options.h"
#include "command_line.h"
#include "commands.h"
#include "conversion.h"
#include "convert_stream.h"
#include "options.h"
#include "output.h"
#include "series.h"
#include "sim_preload.h"

namespace
{

struct Options : ConversionOptions {
    std::string directory = ".";
    bool stream = false;
    SeriesFormat format{"png", "", Axes::optical};
    Invocation invocation;
};

Arrival arrivalOf(const RecordedFrame& frame)
{
    return {realTimePoint(frame.realTime), (frame.flags & kFrameReopened) != 0,
            static_cast<int>(std::min<uint32_t>(frame.dropped, INT_MAX))};
}

// A series that ends early keeps the frames that it has.
void writeSeries(const Options& options, Conversion& conversion)
{
    Series series(options.directory, options.format);
    std::optional<Failure> failure;
    try {
        conversion.run([&](const RecordedFrame& recorded, const DepthFrame& frame, bool) {
            series.add(frame, arrivalOf(recorded));
            return true;
        });
    } catch (const Failure& caught) {
        failure = caught;
    }
    series.finish();
    if (failure && series.kept() > 0)
        throw Failure(failure->code == kInterrupted ? kFailed : failure->code,
                      (failure->code == kInterrupted ? "interrupted" : failure->what()) +
                          formatted("; %d frames are complete in %s", series.kept(), options.directory.c_str()));
    if (failure)
        throw Failure(*failure);
}

int convert(const Options& options)
{
    enterPreload(options.invocation.arguments);
    if (!options.stream) {
        requireWritableDirectory(options.directory);
        requireNoSeries(options.directory);
    }
    Output output;
    Conversion conversion(options, [&](const ListedCamera& camera, const CameraFacts&) {
        return options.format.cloud.empty() ? parseForFrames(options.settings)
                                            : cloudSettings(camera, options.settings);
    });
    if (options.stream) {
        FrameStream stream(output, conversion.listed());
        conversion.run([&](const RecordedFrame& recorded, const DepthFrame& frame, bool changed) {
            stream.add(recorded, frame, changed);
            return true;
        });
        output.finish();
        return kDone;
    }
    writeSeries(options, conversion);
    const CameraFacts& facts = conversion.facts();
    Json json = document("convert");
    json["product"] = facts.product;
    json["serial"] = facts.serial.empty() ? Json() : Json(facts.serial);
    json["frames"] = conversion.done();
    json["directory"] = options.directory;
    output.finish(json, formatted("%s, serial %s: %d frame%s in %s\n", facts.product.c_str(),
                                  facts.serial.empty() ? "unknown" : facts.serial.c_str(), conversion.done(),
                                  conversion.done() == 1 ? "" : "s", options.directory.c_str()));
    return kDone;
}

} // namespace

void addConvert(CLI::App& app, Run& run, const Invocation& invocation)
{
    CLI::App* command = app.add_subcommand("convert", "Makes the images of a recording anew, as files or as a stream");
    const auto options = std::make_shared<Options>();
    options->invocation = invocation;
    command->add_option("FILE", options->files, "The recording, or all of its parts")
        ->type_name("FILE")
        ->check(notEmpty)
        ->required();
    CLI::Option* directory =
        command->add_option("-o,--output", options->directory, "Directory for the files; created if need be")
            ->type_name("DIR")
            ->check(notEmpty)
            ->capture_default_str();
    CLI::Option* format = command->add_option("--format", options->format.plane, "Format of the exact values")
                              ->check(CLI::IsMember(seriesFormats()))
                              ->capture_default_str();
    CLI::Option* cloud = command
                             ->add_option("--cloud", options->format.cloud,
                                          "Also write point clouds, true to scale; all files are then undistorted")
                             ->check(CLI::IsMember(cloudFormatNames()))
                             ->expected(0, 1)
                             ->default_str("ply");
    addAxes(*command, options->format.axes);
    command
        ->add_flag("--stream", options->stream,
                   "Write frames to standard output, as vqd worker sends them (docs/worker.md)")
        ->excludes(directory)
        ->excludes(format)
        ->excludes(cloud);
    addRepeatable(*command, "-s,--set", options->settings, "KEY=VALUE",
                  "A setting instead of the recorded one: undistortion, and what the host corrects");
    command->add_option("--range", options->range, "Only these frames: 100:200 by number, or 2.5s:10s by time")
        ->type_name("[FROM]:[TO]")
        ->check(CLI::Validator(checkRange, ""));
    command->add_option("--every", options->every, "Only each N-th of them")
        ->type_name("N")
        ->check(CLI::Range(1, 1'000'000))
        ->capture_default_str();
    command->add_option("-c,--camera", common.camera, "Serial number, where the recording has several cameras")
        ->type_name("SERIAL")
        ->check(notEmpty);
    addCommon(*command, kJson | kForce);
    command->footer(
        "The library makes the images as it made them while they were recorded, with the settings as they changed,\n"
        "bit for bit. -s makes others.\n"
        "Files and frames.csv are those of vqd grab --format.\n"
        "Example: vqd convert broken.mcap -o frames --format npy\n"
        "Example: vqd convert broken.mcap -o frames -s undistortion=0 --range 10s:12s --cloud");
    command->callback([&run, options] {
        if (options->stream && isatty(STDOUT_FILENO))
            throw CLI::ValidationError("--stream", "standard output is a terminal");
        run = [options] { return convert(*options); };
    });
}
