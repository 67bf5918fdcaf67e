// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd grab: grabs some frames, tells about the camera and keeps the last frame as pictures.
#include <algorithm>
#include <chrono>
#include <memory>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include "camera.h"
#include "cloud.h"
#include "commands.h"
#include "common.h"
#include "exit_codes.h"
#include "interrupt.h"
#include "output.h"
#include "pictures.h"
#include "settings.h"

namespace
{

struct Options {
    int frames = 1;
    std::string directory = ".";
    std::vector<std::string> settings;
    bool cloud = false;
};

// Reads all frames; the last one stays. Returns frames per second, 0 for a single frame.
double readFrames(Stream& stream, int count, Frame& frame)
{
    using Clock = std::chrono::steady_clock;
    Progress progress("frame", count);
    Clock::time_point first;
    for (int i = 0; i < count; ++i) {
        stream.read(frame);
        if (i == 0)
            first = Clock::now();
        progress.show(i + 1);
    }
    const std::chrono::duration<double> passed = Clock::now() - first;
    return count > 1 ? (count - 1) / passed.count() : 0;
}

// Median of the valid pixels of 5 x 5 at the centre; 0 when none is valid.
unsigned centreDepth(const Frame& frame)
{
    std::vector<uint16_t> valid;
    for (int y = VQD_HEIGHT / 2 - 2; y <= VQD_HEIGHT / 2 + 2; ++y)
        for (int x = VQD_WIDTH / 2 - 2; x <= VQD_WIDTH / 2 + 2; ++x)
            if (const uint16_t depth = frame.depth[static_cast<size_t>(VQD_WIDTH * y + x)]; depth != 0)
                valid.push_back(depth);
    if (valid.empty())
        return 0;
    const auto middle = valid.begin() + static_cast<std::ptrdiff_t>(valid.size() / 2);
    std::nth_element(valid.begin(), middle, valid.end());
    return *middle;
}

void savePictures(const std::filesystem::path& directory, const Frame& frame)
{
    writeFile(directory / "depth.png", depthPicture(frame.depth));
    writeFile(directory / "amplitude.png", amplitudePicture(frame.amplitude));
    writeFile(directory / "depth16.png", exactPicture(frame.depth));
    writeFile(directory / "amplitude16.png", exactPicture(frame.amplitude));
}

void saveCloud(const std::filesystem::path& directory, const Frame& frame)
{
    const std::vector<CloudPoint> cloud = cloudOf(frame);
    writeFile(directory / "points.ply", plyFile(cloud));
    writeFile(directory / "points.png", cloudPicture(cloud));
}

void tell(Output& output, const DevInfo& camera, const Options& options, double rate, unsigned depth)
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
    output.print("pictures in %s: depth.png, amplitude.png; exact values: depth16.png, amplitude16.png\n",
                 options.directory.c_str());
    if (options.cloud)
        output.print("point cloud: points.ply, seen in points.png\n");
}

// A frame may be under way with the settings before.
void applySettings(Stream& stream, const Camera& camera, const std::vector<Assignment>& assignments, Frame& frame)
{
    for (const Assignment& assignment : assignments) {
        endIfInterrupted();
        apply(camera, assignment);
    }
    if (!assignments.empty())
        stream.read(frame);
}

int grab(const Options& options)
{
    std::vector<Assignment> assignments;
    for (const std::string& word : options.settings)
        assignments.push_back(parseAssignment(word));
    Output output;
    const Session session;
    const Camera& camera = session.choose();
    requireWritableDirectory(options.directory);
    session.loadAlone(camera);
    const auto frame = std::make_unique<Frame>();
    double rate = 0;
    {
        Stream stream(camera);
        applySettings(stream, camera, assignments, *frame);
        rate = readFrames(stream, options.frames, *frame);
    }
    savePictures(options.directory, *frame);
    if (options.cloud)
        saveCloud(options.directory, *frame);
    tell(output, camera, options, rate, centreDepth(*frame));
    output.finish();
    return kDone;
}

} // namespace

void addGrab(CLI::App& app, Run& run)
{
    CLI::App* command = app.add_subcommand("grab", "Grabs frames and keeps the last one as PNG pictures");
    const auto options = std::make_shared<Options>();
    command->add_option("-n,--frames", options->frames, "Number of frames")
        ->check(CLI::Range(1, 100'000'000))
        ->capture_default_str();
    command->add_option("-o,--output", options->directory, "Directory for the pictures; made if need be")
        ->type_name("DIR")
        ->capture_default_str();
    addCommon(*command, kCamera | kForce);
    command->add_option("-s,--set", options->settings, "Settings for this grab only; see vqd set")
        ->type_name("KEY=VALUE");
    command->add_flag("--cloud", options->cloud,
                      "Also points.ply, metres, X right, Y up; true to scale with undistortion on");
    command->footer("Example: vqd grab -n 30 -o pictures");
    command->callback([&run, options] { run = [options] { return grab(*options); }; });
}
