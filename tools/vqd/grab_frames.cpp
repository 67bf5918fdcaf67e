// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Reading and keeping the frames of one camera, and the report of it.
#include "grab.h"

#include <algorithm>
#include <optional>

#include "host/failure.h"
#include "host/formatted.h"

#include "frame_files.h"
#include "messages.h"
#include "options.h"
#include "series.h"

namespace
{

// Hands each frame to the series, if there is one.
void readFrames(const GrabOptions& options, const ReadFrame& read, DepthFrame& frame, Series* series,
                const std::function<void(int)>& done)
{
    for (int i = 1; i <= options.frames; ++i) {
        const Arrival arrival = read(frame);
        if (series != nullptr)
            series->add(frame, arrival);
        done(i);
    }
}

// A series that ends early keeps the frames that it has.
[[noreturn]] void failSeries(const Failure& failure, const GrabOptions& options, int kept)
{
    const bool stopped = failure.code == kInterrupted;
    throw Failure(stopped ? kFailed : failure.code, (stopped ? "interrupted" : failure.what()) + std::string("; ") +
                                                        std::to_string(kept) + " of " + std::to_string(options.frames) +
                                                        " frames are complete in " + options.directory);
}

void readSeries(const GrabOptions& options, const ReadFrame& read, DepthFrame& frame,
                const std::function<void(int)>& done)
{
    Series series(options.directory, {options.format, options.cloud, options.axes});
    std::optional<Failure> failure;
    try {
        readFrames(options, read, frame, &series, done);
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

std::string filesText(const GrabOptions& options)
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

std::vector<FrameFile> picturesOf(const GrabOptions& options)
{
    return options.format.empty() ? pictureFiles(options.cloud, options.axes) : std::vector<FrameFile>();
}

} // namespace

void requireRoomForFiles(const GrabOptions& options)
{
    requireWritableDirectory(options.directory);
    requireNewFiles(options.directory, picturesOf(options));
    if (!options.format.empty())
        requireNoSeries(options.directory);
}

void grabFrames(const GrabOptions& options, const ReadFrame& read, DepthFrame& frame,
                const std::function<void(int)>& done)
{
    if (options.format.empty())
        readFrames(options, read, frame, nullptr, done);
    else
        readSeries(options, read, frame, done);
    writeFiles(options.directory, picturesOf(options), frame);
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

Json reportJson(const GrabOptions& options, const GrabReport& report)
{
    const auto known = [](auto value) { return value > 0 ? Json(value) : Json(); };
    Json json;
    json["camera"] = report.camera;
    json["temperature"] = report.temperature;
    json["logic-version"] = report.logicVersion;
    json["frames"] = options.frames;
    json["frames-per-second"] = known(report.arrivals.rate());
    json["lost-estimate"] = report.arrivals.lost();
    json["reopens"] = report.arrivals.reopens();
    json["longest-gap"] = known(report.arrivals.longest());
    json["centre-depth"] = known(report.depth);
    json["directory"] = options.directory;
    return json;
}

std::string reportText(const GrabOptions& options, const GrabReport& report)
{
    const Json& camera = report.camera;
    const Arrivals& arrivals = report.arrivals;
    const auto text = [](const Json& json) { return json.is_string() ? json.get<std::string>() : "unknown"; };
    std::string lines =
        formatted("camera %d: %s, serial %s, USB %s\n", camera["index"].get<int>(), text(camera["product"]).c_str(),
                  text(camera["serial"]).c_str(), text(camera["usb"]).c_str());
    lines += formatted("sensor temperature %.1f, logic version %s\n", report.temperature.get<double>(),
                       text(report.logicVersion).c_str());
    lines += formatted("%d frame%s", options.frames, options.frames == 1 ? "" : "s");
    if (arrivals.rate() > 0)
        lines += formatted(", %.1f frames per second", arrivals.rate());
    lines += '\n';
    if (arrivals.lost() > 0 || arrivals.reopens() > 0)
        lines += formatted("gaps: re-opens %d, frames lost about %d, the longest gap %.1f s\n", arrivals.reopens(),
                           arrivals.lost(), arrivals.longest());
    lines +=
        report.depth > 0 ? formatted("depth at the centre %u mm\n", report.depth) : "no valid depth at the centre\n";
    return lines + filesText(options);
}
