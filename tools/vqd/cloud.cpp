// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd cloud: what a camera sees as one point cloud, from the mean of several frames.
#include <filesystem>
#include <memory>

#include <CLI/CLI.hpp>

#include "host/formatted.h"

#include "cameras.h"
#include "cloud_options.h"
#include "command_line.h"
#include "commands.h"
#include "options.h"
#include "output.h"
#include "progress.h"
#include "settings_apply.h"

namespace
{

struct Options {
    std::string file, format;
    int frames = 10;
    Axes axes = Axes::optical;
    std::vector<std::string> settings;
};

std::vector<PixelSum> addFrames(Stream& stream, int count)
{
    std::vector<PixelSum> sums(VQD_PIXELS);
    const auto frame = std::make_unique<DepthFrame>();
    Progress progress("frame", count);
    for (int i = 0; i < count; ++i) {
        stream.read(*frame);
        for (size_t p = 0; p < sums.size(); ++p) {
            if (frame->depth[p] == 0)
                continue;
            sums[p].amplitude += frame->amplitude[p];
            sums[p].depth += frame->depth[p];
            ++sums[p].valid;
        }
        progress.show(i + 1);
    }
    return sums;
}

int cloud(const Options& options)
{
    std::vector<Assignment> assignments = parseForFrames(options.settings);
    const std::string extension = std::filesystem::path(options.file).extension();
    const CloudFormat& format = cloudFormat(!options.format.empty() ? options.format
                                            : extension.empty()     ? ""
                                                                    : extension.substr(1));
    requireWritableFile(options.file, existing());
    Output output;
    const Cameras cameras;
    const ListedCamera& camera = assignments.empty() ? cameras.choose() : cameras.chooseToChange();
    cameras.loadWithProfile(camera);
    assignments = cloudSettings(camera, options.settings);
    std::vector<CloudPoint> points;
    {
        Stream stream(camera);
        applySettings(camera, assignments);
        addFrames(stream, 1); // it may have been exposed with the settings before
        points = cloudOf(addFrames(stream, options.frames), options.frames);
    }
    writeFile(options.file, format.encode(points, options.axes), existing());
    const size_t valid = validPoints(points);
    Json json = document("cloud");
    json["camera"] = identityJson(camera);
    json["frames"] = options.frames;
    json["points"] = valid;
    json["file"] = options.file;
    output.finish(json, formatted("%s: %zu points, mean of %d frames\n", options.file.c_str(), valid, options.frames));
    return kDone;
}

} // namespace

void addCloud(CLI::App& app, Run& run)
{
    CLI::App* command = app.add_subcommand("cloud", "Writes what a camera sees as one point cloud");
    const auto options = std::make_shared<Options>();
    command->add_option("file", options->file, "FILE.ply or FILE.pcd")->type_name("FILE")->check(notEmpty)->required();
    command->add_option("--format", options->format, "Format of the file, whatever its name is")
        ->check(CLI::IsMember(cloudFormatNames()));
    command->add_option("-n,--frames", options->frames, "Number of frames, of which the mean is taken")
        ->check(CLI::Range(1, 100'000))
        ->capture_default_str();
    addRepeatable(*command, "-s,--set", options->settings, "KEY=VALUE", "A setting for this cloud only, as in vqd set");
    addAxes(*command, options->axes);
    addCommon(*command, kCamera | kJson | kForce | kProfile);
    command->footer(
        "Points are in metres and true to scale: for this cloud, undistortion=1 is set, and orthogonal=1 for "
        "models that the host corrects, unless -s says otherwise. A pixel becomes a point when at least half "
        "of the frames have a depth there.\n"
        "Example: vqd cloud room.ply -n 30");
    command->callback([&run, options] { run = [options] { return cloud(*options); }; });
}
