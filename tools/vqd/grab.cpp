// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd grab: grabs frames and keeps the last one as pictures, or every one in a format for programs.
#include <algorithm>
#include <chrono>
#include <memory>

#include <CLI/CLI.hpp>

#include "commands.h"
#include "common.h"
#include "exit_codes.h"
#include "frame_files.h"
#include "settings.h"

namespace
{

struct Options {
    int frames = 1;
    std::string directory = ".";
    std::vector<std::string> settings;
    std::string format, cloud;
};

// Reads all frames and keeps those of a series; the last one stays. Returns frames per second, 0 for a single frame.
double readFrames(Stream& stream, const Options& options, Frame& frame, int& kept)
{
    using Clock = std::chrono::steady_clock;
    Progress progress("frame", options.frames);
    Clock::time_point first;
    for (int i = 1; i <= options.frames; ++i) {
        stream.read(frame);
        if (i == 1)
            first = Clock::now();
        if (!options.format.empty()) {
            writeFiles(options.directory, seriesFiles(options.format, options.cloud, i), frame);
            kept = i;
        }
        progress.show(i);
    }
    const std::chrono::duration<double> passed = Clock::now() - first;
    return options.frames > 1 ? (options.frames - 1) / passed.count() : 0;
}

// Median of the valid pixels of 5 x 5 at the centre; 0 when none is valid.
unsigned centreDepth(const Frame& frame)
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

Json summaryJson(const Camera& camera, const Options& options, double rate, unsigned depth)
{
    const int n = camera.nIndex;
    Json json = document("grab");
    json["camera"] = identityJson(camera);
    json["temperature"] = settingByName("temperature").get(n);
    json["logic-version"] = settingByName("logic-version").get(n);
    json["frames"] = options.frames;
    json["frames-per-second"] = rate > 0 ? Json(rate) : Json();
    json["centre-depth"] = depth > 0 ? Json(depth) : Json();
    json["directory"] = options.directory;
    return json;
}

void tell(Output& output, const Camera& camera, const Options& options, double rate, unsigned depth)
{
    const int n = camera.nIndex;
    output.print("camera %d: %s, serial %s, USB %s\n", n, camera.szDeviceName, camera.szSerialNumber,
                 usbIds(camera).c_str());
    output.print("sensor temperature %.1f, logic version %u.%u\n", m_dTemperature[n], m_nLogicver[0][n],
                 m_nLogicver[1][n]);
    output.print("%d frame%s", options.frames, options.frames == 1 ? "" : "s");
    if (rate > 0)
        output.print(", %.1f frames per second", rate);
    if (depth > 0)
        output.print("\ndepth at the centre %u mm\n", depth);
    else
        output.print("\nno valid depth at the centre\n");
}

void tellFiles(Output& output, const Options& options)
{
    const char* const directory = options.directory.c_str();
    if (!options.format.empty())
        output.print("every frame in %s: depth-*.%s, amplitude-*.%s\n", directory, options.format.c_str(),
                     options.format.c_str());
    else
        output.print("pictures in %s: depth.png, amplitude.png; exact values: depth16.png, amplitude16.png\n",
                     directory);
    if (!options.cloud.empty())
        output.print(options.format.empty() ? "point cloud: points.%s, seen in points.png\n"
                                            : "point clouds: points-*.%s\n",
                     options.cloud.c_str());
}

// A series that ends early keeps what it has.
[[noreturn]] void failSeries(const Failure& failure, const Options& options, int kept)
{
    const bool stopped = failure.code == kInterrupted;
    throw Failure(stopped ? kFailed : failure.code, (stopped ? "interrupted" : failure.what()) + std::string("; ") +
                                                        std::to_string(kept) + " of " + std::to_string(options.frames) +
                                                        " frames are complete in " + options.directory);
}

int grab(const Options& options)
{
    const std::vector<Assignment> assignments = parseAssignments(options.settings);
    const std::vector<FrameFile> pictures =
        options.format.empty() ? pictureFiles(options.cloud) : std::vector<FrameFile>();
    Output output;
    const Session session;
    const Camera& camera = assignments.empty() ? session.choose() : session.chooseToChange();
    requireWritableDirectory(options.directory);
    requireNewFiles(options.directory, pictures);
    if (!options.format.empty())
        requireNewFiles(options.directory, seriesFiles(options.format, options.cloud, 1));
    session.loadAlone(camera);
    const auto frame = std::make_unique<Frame>();
    double rate = 0;
    int kept = 0;
    try {
        Stream stream(camera);
        applySettings(camera, assignments);
        if (!assignments.empty())
            stream.read(*frame); // may be under way with the settings before
        rate = readFrames(stream, options, *frame, kept);
    } catch (const Failure& failure) {
        if (kept == 0)
            throw;
        failSeries(failure, options, kept);
    }
    writeFiles(options.directory, pictures, *frame);
    const unsigned depth = centreDepth(*frame);
    if (common.json) {
        output.print(summaryJson(camera, options, rate, depth));
    } else {
        tell(output, camera, options, rate, depth);
        tellFiles(output, options);
    }
    output.finish();
    return kDone;
}

} // namespace

void addGrab(CLI::App& app, Run& run)
{
    CLI::App* command = app.add_subcommand("grab", "Grabs frames; keeps the last one as PNG pictures, or all of them");
    const auto options = std::make_shared<Options>();
    command->add_option("-n,--frames", options->frames, "Number of frames")
        ->check(CLI::Range(1, 100'000'000))
        ->capture_default_str();
    command->add_option("-o,--output", options->directory, "Directory for the files; made if need be")
        ->type_name("DIR")
        ->capture_default_str();
    command
        ->add_option("--format", options->format,
                     "Keep every frame, exact values: depth-000001.FORMAT, amplitude-000001.FORMAT, ...")
        ->check(CLI::IsMember(seriesFormats()));
    command
        ->add_option("--cloud", options->cloud,
                     "Also point clouds (ply where the format is left out), metres, X right, Y up; true to scale with "
                     "undistortion on")
        ->check(CLI::IsMember({"ply", "pcd"}))
        ->expected(0, 1)
        ->default_str("ply");
    command->add_option("-s,--set", options->settings, "Settings for this grab only; see vqd set")
        ->type_name("KEY=VALUE")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    addCommon(*command, kCamera | kJson | kForce);
    command->footer("raw: 320 x 240 values of 16 bits, low byte first, rows from the top. npy: NumPy 1.0.\n"
                    "Depth is in mm, 0 invalid.\n"
                    "Example: vqd grab -n 30 -o pictures\n"
                    "Example: vqd grab -n 100 --format npy --cloud pcd -o series -s undistortion=2");
    command->callback([&run, options] { run = [options] { return grab(*options); }; });
}
