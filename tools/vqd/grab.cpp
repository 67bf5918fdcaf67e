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
#include "pictures.h"
#include "point_cloud.h"
#include "settings.h"

namespace
{

struct Options {
    int frames = 1;
    std::string directory = ".";
    std::vector<std::string> settings;
    std::string format, cloud;
};

using Path = std::filesystem::path;

// A file of a plane.
struct PlaneFile {
    const char* name;
    Plane (*plane)(const Frame& frame);
    Bytes (*encode)(Plane plane);
};

Plane depth(const Frame& frame)
{
    return frame.depth;
}

Plane amplitude(const Frame& frame)
{
    return frame.amplitude;
}

// Of the last frame, where no format is given.
constexpr PlaneFile kPictures[] = {
    {"depth.png", depth, depthPicture},
    {"amplitude.png", amplitude, amplitudePicture},
    {"depth16.png", depth, exactPicture},
    {"amplitude16.png", amplitude, exactPicture},
};

// Of every frame.
constexpr struct {
    const char* name;
    Bytes (*encode)(Plane plane);
} kFormats[] = {{"png", exactPicture}, {"pgm", pgmFile}, {"npy", npyFile}, {"raw", rawFile}};

// What becomes of the frames.
class Keeper
{
public:
    explicit Keeper(const Options& options) : m_options(options), m_directory(options.directory)
    {
        for (const auto& format : kFormats)
            if (options.format == format.name)
                m_encode = format.encode;
        if (!options.cloud.empty())
            m_cloud = &cloudFormat(options.cloud);
    }

    // Fails where the files can not be written, before the camera starts.
    void prepare() const
    {
        requireWritableDirectory(m_directory);
        if (m_encode != nullptr) {
            for (const char* plane : {"depth", "amplitude"})
                requireNewFile(numbered(plane, 1, m_options.format));
            if (m_cloud != nullptr)
                requireNewFile(numbered("points", 1, m_options.cloud));
            return;
        }
        for (const PlaneFile& file : kPictures)
            requireNewFile(m_directory / file.name);
        if (m_cloud != nullptr)
            for (const Path& file : {cloudFile(), m_directory / "points.png"})
                requireNewFile(file);
    }

    // A frame of a series; the first has the number 1.
    void keep(const Frame& frame, int number)
    {
        if (m_encode == nullptr)
            return;
        writeFile(numbered("depth", number, m_options.format), m_encode(frame.depth));
        writeFile(numbered("amplitude", number, m_options.format), m_encode(frame.amplitude));
        if (m_cloud != nullptr)
            writeFile(numbered("points", number, m_cloud->name), m_cloud->encode(cloudOf(frame)));
        m_kept = number;
    }

    void keepLast(const Frame& frame) const
    {
        if (m_encode != nullptr)
            return;
        for (const PlaneFile& file : kPictures)
            writeFile(m_directory / file.name, file.encode(file.plane(frame)));
        if (m_cloud == nullptr)
            return;
        const std::vector<CloudPoint> cloud = cloudOf(frame);
        writeFile(cloudFile(), m_cloud->encode(cloud));
        writeFile(m_directory / "points.png", cloudPicture(cloud));
    }

    int kept() const { return m_kept; }

    std::string summary() const
    {
        const std::string where = m_options.directory + ": ";
        if (m_encode != nullptr)
            return where + "depth-*." + m_options.format + ", amplitude-*." + m_options.format +
                   (m_cloud ? ", points-*." + m_options.cloud : "");
        return "pictures in " + where + "depth.png, amplitude.png; exact values: depth16.png, amplitude16.png" +
               (m_cloud ? "\npoint cloud: points." + m_options.cloud + ", seen in points.png" : "");
    }

private:
    Path cloudFile() const { return m_directory / ("points." + m_options.cloud); }

    Path numbered(const char* what, int number, const std::string& extension) const
    {
        char name[64];
        snprintf(name, sizeof name, "%s-%06d.%s", what, number, extension.c_str());
        return m_directory / name;
    }

    const Options& m_options;
    Path m_directory;
    Bytes (*m_encode)(Plane plane) = nullptr; // null: no series
    const CloudFormat* m_cloud = nullptr;
    int m_kept = 0;
};

// Reads all frames; the last one stays. Returns frames per second, 0 for a single frame.
double readFrames(Stream& stream, int count, Frame& frame, Keeper& keeper)
{
    using Clock = std::chrono::steady_clock;
    Progress progress("frame", count);
    Clock::time_point first;
    for (int i = 0; i < count; ++i) {
        stream.read(frame);
        if (i == 0)
            first = Clock::now();
        keeper.keep(frame, i + 1);
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

int grab(const Options& options)
{
    const std::vector<Assignment> assignments = parseAssignments(options.settings);
    Keeper keeper(options);
    Output output;
    const Session session;
    const Camera& camera = session.choose();
    keeper.prepare();
    session.loadAlone(camera);
    const auto frame = std::make_unique<Frame>();
    double rate = 0;
    try {
        Stream stream(camera);
        applySettings(camera, assignments);
        if (!assignments.empty())
            stream.read(*frame); // may be under way with the settings before
        rate = readFrames(stream, options.frames, *frame, keeper);
    } catch (const Failure& failure) {
        if (keeper.kept() == 0)
            throw;
        throw Failure(failure.code == kInterrupted ? kFailed : failure.code,
                      (failure.code == kInterrupted ? "interrupted" : failure.what()) + std::string("; ") +
                          std::to_string(keeper.kept()) + " of " + std::to_string(options.frames) +
                          " frames are complete in " + options.directory);
    }
    keeper.keepLast(*frame);
    if (common.json) {
        output.print(summaryJson(camera, options, rate, centreDepth(*frame)));
    } else {
        tell(output, camera, options, rate, centreDepth(*frame));
        output.print("%s\n", keeper.summary().c_str());
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
    std::vector<std::string> formats;
    for (const auto& format : kFormats)
        formats.push_back(format.name);
    command
        ->add_option("--format", options->format,
                     "Keep every frame, exact values: depth-000001.FORMAT, amplitude-000001.FORMAT, ...")
        ->check(CLI::IsMember(formats));
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
