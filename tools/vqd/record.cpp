// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd record: the command line, the line of progress, and the report at the end.
#include "record.h"

#include <CLI/CLI.hpp>

#include "host/assignments.h"
#include "host/documents.h"
#include "host/formatted.h"
#include "host/usb_devices.h"
#include "recording/record_request.h"
#include "recording/recorder.h"

#include "amounts.h"
#include "cameras.h"
#include "command_line.h"
#include "commands.h"
#include "interrupt.h"
#include "messages.h"
#include "options.h"
#include "output.h"
#include "progress.h"

namespace
{

struct Words {
    std::string output = ".", split, time;
    bool compact = false, images = false, noImages = false, noCompress = false;
};

double megabytes(uint64_t bytes)
{
    return static_cast<double>(bytes) / 1e6;
}

// Where the camera that was chosen is plugged in; empty for all of them. Without need nothing is listed, because that
// reads from the cameras.
std::string chosenPort()
{
    if (allCamerasChosen())
        return "";
    const std::vector<UsbCamera> attached = attachedCameras();
    if (std::ranges::find(attached, common.camera, &UsbCamera::port) != attached.end())
        return common.camera;
    const Cameras cameras;
    const ListedCamera& camera = cameras.choose();
    if (camera.place.port.empty())
        throw Failure(kFailed, "the port of " + nameOf(camera) + " is not known, so no worker can be started for it");
    return camera.place.port;
}

void takeWords(const Words& words, RecordOptions& options)
{
    Json& request = options.request;
    if (words.compact)
        request["compact"] = true;
    if (words.images || words.noImages)
        request["images"] = words.images;
    if (words.noCompress)
        request["compress"] = false;
    if (const std::optional<uint64_t> bytes = bytesIn(words.split))
        request["split-bytes"] = *bytes;
    else if (const std::optional<double> seconds = secondsIn(words.split))
        request["split-seconds"] = *seconds;
    options.seconds = secondsIn(words.time).value_or(0);
    const std::filesystem::path output = words.output;
    const bool isFile = output.extension() == ".mcap";
    options.name = isFile ? output.stem().string() : "";
    options.folder = (isFile ? output.parent_path() : output).string();
    if (options.folder.empty())
        options.folder = ".";
}

std::string progressText(const Recorded& all)
{
    return formatted("%.1f s, %llu frames, %llu lost, %llu not recorded, %.1f MB, %.1f MB/s", all.seconds,
                     static_cast<unsigned long long>(all.frames), static_cast<unsigned long long>(all.lost),
                     static_cast<unsigned long long>(all.notRecorded), megabytes(all.bytes), all.bytesPerSecond / 1e6);
}

Json reportJson(const CameraRecording& recording)
{
    const Recorded all = recording.all();
    return {{"camera", recording.camera().identity()},
            {"files", all.files},
            {"frames", all.frames},
            {"lost-estimate", all.lost},
            {"not-recorded", all.notRecorded},
            {"seconds", all.seconds},
            {"bytes", all.bytes},
            {"error", recording.failure() ? Json(recording.failure()->what()) : Json()}};
}

std::string reportText(const CameraRecording& recording)
{
    const Recorded all = recording.all();
    std::string text = recording.camera().title() + ": " + progressText(all) + '\n';
    for (const std::string& file : all.files)
        text += file + '\n';
    return text;
}

// Each camera's trouble, and the code of the first.
void requireNone(const CameraRecordings& recordings)
{
    std::optional<Failure> all;
    for (const auto& recording : recordings)
        if (const std::optional<Failure>& failure = recording->failure())
            all.emplace(all ? Failure(all->code, std::string(all->what()) + "; " + failure->what()) : *failure);
    if (all)
        throw Failure(*all);
}

int recordCommand(const RecordOptions& options)
{
    if (const char* const missing = recordingMissing())
        throw Failure(kUsage, missing);
    parseForFrames(options.settings);
    Output output;
    requireWritableDirectory(options.folder);
    RecordOptions chosen = options;
    chosen.port = chosenPort();
    AllCameras cameras(workersFor(chosen));
    CameraRecordings recordings = recordingsOf(cameras, chosen);
    {
        Progress progress;
        record(cameras, recordings, [&](const Recorded& all) { progress.show(progressText(all)); });
    }
    Json json = document("record");
    json["cameras"] = Json::array();
    std::string text;
    uint64_t frames = 0;
    for (const auto& recording : recordings) {
        json["cameras"].push_back(reportJson(*recording));
        text += reportText(*recording);
        frames += recording->all().frames;
        if (const uint64_t missing = recording->all().notRecorded; missing > 0)
            warn("%s: %llu frames are not recorded, because the disk was too slow", recording->camera().title().c_str(),
                 static_cast<unsigned long long>(missing));
    }
    if (frames == 0)
        endIfInterrupted();
    output.finish(json, text);
    requireNone(recordings);
    if (!interrupted())
        cameras.requireNoneLeftOut();
    return kDone;
}

std::string checkTime(const std::string& text)
{
    return secondsIn(text).value_or(0) > 0 ? "" : text + " is no time";
}

std::string checkSplit(const std::string& text)
{
    const std::optional<uint64_t> bytes = bytesIn(text);
    const std::optional<double> seconds = secondsIn(text);
    if (!bytes && !seconds)
        return text + " is neither a size nor a time";
    const bool isEnough = bytes ? static_cast<double>(*bytes) >= kLeastSplitBytes : *seconds >= kLeastSplitSeconds;
    return isEnough ? ""
                    : text + " is less than 1M or 1s, which a file has at least; a number without a unit is a size";
}

} // namespace

void addRecord(CLI::App& app, Run& run)
{
    CLI::App* command = app.add_subcommand("record", "Records cameras as they sent it, to be played back as cameras");
    const auto words = std::make_shared<Words>();
    const auto options = std::make_shared<RecordOptions>();
    command
        ->add_option("-o,--output", words->output,
                     "The folder, created if need be; or the file of one camera, which ends in .mcap")
        ->type_name("PATH")
        ->check(notEmpty)
        ->capture_default_str();
    CLI::Option* frames =
        command->add_option("-n,--frames", options->frames, "Number of frames of each camera after which it ends")
            ->check(CLI::Range(1, 100'000'000));
    command->add_option("--for", words->time, "Time after which it ends, such as 90s, 10min or 1h")
        ->type_name("TIME")
        ->check(checkTime)
        ->excludes(frames);
    command->add_option("--split", words->split, "Size or time after which the next file begins, such as 2G or 10min")
        ->type_name("SIZE|TIME")
        ->check(checkSplit);
    CLI::Option* compact = command->add_flag("--compact", words->compact,
                                             "Pack frames to less than half, instead of keeping them as images");
    CLI::Option* images =
        command->add_flag("--images", words->images, "Record what the library makes of the frames, too");
    command->add_flag("--no-images", words->noImages, "Do not, not even for models whose depth the host corrects")
        ->excludes(images);
    command->add_flag("--no-compress", words->noCompress, "Do not compress the file")->excludes(compact);
    addKeepFree(*command, options->keepFree);
    addRepeatable(*command, "-s,--set", options->settings, "KEY=VALUE", "A setting for this recording, as in vqd set");
    addCommon(*command, kCamera | kAllCameras | kJson | kProfile);
    command->footer(
        "The file is SERIAL-DATE-TIME.mcap, and has .part behind that until it is complete. Nothing is\n"
        "overwritten. Ctrl-C ends a recording without limits. A camera that has a worker already is recorded by\n"
        "it, below the folder that vqd worker --recordings has named.\n"
        "Example: vqd record --for 10s\n"
        "Example: vqd record -c all --compact --split 10min -o /data");
    command->callback([&run, words, options] {
        run = [words, options] {
            takeWords(*words, *options);
            return recordCommand(*options);
        };
    });
}
