// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd recording: what is in the file of a recording, whether it is whole, and what is whole of it.
#include <algorithm>
#include <ctime>
#include <memory>

#include <CLI/CLI.hpp>

#include "host/formatted.h"
#include "recording/layout.h"
#include "recording/mcap_repair.h"
#include "recording/message_check.h"
#include "recording/part_file.h"

#include "commands.h"
#include "interrupt.h"
#include "messages.h"
#include "options.h"
#include "output.h"
#include "plain_text.h"
#include "progress.h"

namespace
{

constexpr double kSecond = 1e9;

struct Options {
    std::string file, target;
};

std::string megabytes(uint64_t bytes)
{
    return formatted("%.1f MB", static_cast<double>(bytes) / 1e6);
}

std::string utc(uint64_t time)
{
    const auto seconds = static_cast<time_t>(time / static_cast<uint64_t>(kSecond));
    tm parts{};
    char text[40] = "";
    if (gmtime_r(&seconds, &parts) != nullptr)
        strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &parts);
    return text;
}

// What the recorder says of its camera; nothing in a recording of another program.
mcap::Names cameraIn(mcap::Reader& reader)
{
    for (const mcap::MetadataPlace& place : reader.metadata())
        if (place.name == kMetadata)
            return reader.read(place);
    return {};
}

// Whether the messages are those of a recorder that is known here. Says so if not.
bool isKnown(const mcap::Names& camera, const std::string& file)
{
    const auto format = camera.find(kFormatKey);
    if (format == camera.end())
        warn("%s was not recorded by vqd, so it cannot be played as a camera", file.c_str());
    else if (format->second != std::to_string(kRecordingFormat))
        warn("%s is of format %s, and this version of vqd knows format %d only", file.c_str(),
             plain(format->second).c_str(), kRecordingFormat);
    else
        return true;
    return false;
}

struct Channel {
    const mcap::Channel* channel;
    uint64_t messages;
};

std::vector<Channel> channelsIn(mcap::Reader& reader)
{
    std::map<uint16_t, uint64_t> counts;
    if (reader.counts()) {
        counts = *reader.counts();
    } else {
        mcap::Cursor cursor(reader);
        while (const auto message = cursor.next())
            ++counts[message->channel];
    }
    std::vector<Channel> channels;
    for (const auto& [number, channel] : reader.channels())
        channels.push_back({&channel, counts[number]});
    std::ranges::sort(channels, {}, [](const Channel& one) { return one.channel->topic; });
    return channels;
}

int info(const Options& options)
{
    Output output;
    mcap::Reader reader(options.file);
    const mcap::Names camera = cameraIn(reader);
    const std::vector<Channel> channels = channelsIn(reader);
    uint64_t begin = reader.chunks().empty() ? 0 : UINT64_MAX, end = 0;
    for (const mcap::ChunkPlace& chunk : reader.chunks()) {
        begin = std::min(begin, chunk.firstTime);
        end = std::max(end, chunk.lastTime);
    }
    const double seconds = end < begin ? 0 : static_cast<double>(end - begin) / kSecond;
    isKnown(camera, options.file);
    if (!reader.damage().empty())
        warn("%s: %s", options.file.c_str(), reader.damage().c_str());

    Json json = document("recording-info");
    json["file"] = options.file;
    json["bytes"] = reader.fileBytes();
    json["whole"] = reader.damage().empty();
    json["begin-ns"] = begin;
    json["end-ns"] = end;
    json["chunks"] = reader.chunks().size();
    json["camera"] = camera.empty() ? Json() : Json(camera);
    json["channels"] = Json::array();
    json["attachments"] = Json::array();
    std::string text = formatted("%s: %s, %.1f s from %s\n", options.file.c_str(),
                                 megabytes(reader.fileBytes()).c_str(), seconds, utc(begin).c_str());
    for (const auto& [key, value] : camera)
        text += formatted("  %-16s%s\n", plain(key).c_str(), plain(value).c_str());
    size_t width = 0;
    for (const Channel& one : channels)
        width = std::max(width, one.channel->topic.size());
    for (const auto& [channel, messages] : channels) {
        json["channels"].push_back({{"topic", channel->topic}, {"type", channel->type}, {"messages", messages}});
        text += formatted("%8llu  %-*s  %s\n", static_cast<unsigned long long>(messages), static_cast<int>(width),
                          channel->topic.c_str(), channel->type.c_str());
    }
    for (const mcap::AttachmentPlace& place : reader.attachments()) {
        json["attachments"].push_back({{"name", place.name}, {"type", place.mediaType}, {"bytes", place.bytes}});
        text +=
            formatted("attached  %s, %llu bytes\n", place.name.c_str(), static_cast<unsigned long long>(place.bytes));
    }
    output.finish(json, text);
    return kDone;
}

// Shows how far a walk through the file is, and ends it after a signal.
mcap::Step stepping(const mcap::Reader& reader, Progress& progress)
{
    return [&progress, size = reader.fileBytes()](uint64_t offset) {
        endIfInterrupted();
        progress.show(static_cast<int>(offset * 100 / std::max<uint64_t>(size, 1)));
    };
}

int verify(const Options& options)
{
    catchInterrupts();
    Output output;
    mcap::Reader reader(options.file);
    MessageCheck check;
    const bool known = isKnown(cameraIn(reader), options.file);
    const auto judge = [&](const mcap::Channel& channel, const mcap::Message& message) {
        if (known)
            check.look(channel, message);
    };
    mcap::Verdict verdict;
    {
        Progress progress("per cent", 100);
        verdict = mcap::verify(reader, judge, stepping(reader, progress));
    }
    Json json = document("recording-verify");
    json["file"] = options.file;
    json["whole"] = verdict.faultCount == 0;
    json["chunks"] = verdict.chunks;
    json["messages"] = verdict.messages;
    json["faults"] = verdict.faults;
    json["fault-count"] = verdict.faultCount;
    std::string text = formatted(
        "%s: %s, %llu messages in %llu chunks\n", options.file.c_str(), verdict.faultCount == 0 ? "whole" : "damaged",
        static_cast<unsigned long long>(verdict.messages), static_cast<unsigned long long>(verdict.chunks));
    for (const std::string& fault : verdict.faults)
        text += "  " + fault + '\n';
    if (verdict.faultCount > verdict.faults.size())
        text +=
            formatted("  and %llu more\n", static_cast<unsigned long long>(verdict.faultCount - verdict.faults.size()));
    output.finish(json, text);
    return verdict.faultCount == 0 ? kDone : kVerification;
}

// shelf.mcap and shelf.mcap.part become shelf-repaired.mcap.
std::filesystem::path usualTarget(std::filesystem::path file)
{
    for (const char* extension : {".part", ".mcap"})
        if (file.extension() == extension)
            file.replace_extension();
    return file += "-repaired.mcap";
}

// The new file is complete or not there.
mcap::Repaired repairInto(const std::filesystem::path& target, mcap::Reader& reader)
{
    const std::filesystem::path folder = target.parent_path();
    const PartFile file(folder.empty() ? "." : folder, target.filename(), ".repair"); // NAME.part may be the source
    try {
        Progress progress("per cent", 100);
        mcap::Repaired done = mcap::repair(reader, file.descriptor(), stepping(reader, progress));
        if (done.chunks + done.attachments + done.metadata == 0)
            throw Failure(kUsage, "nothing in it is whole");
        file.keep();
        return done;
    } catch (...) {
        file.remove();
        throw;
    }
}

int repair(const Options& options)
{
    catchInterrupts();
    Output output;
    mcap::Reader reader(options.file);
    const std::filesystem::path target =
        options.target.empty() ? usualTarget(options.file) : std::filesystem::path(options.target);
    if (target.filename().empty())
        throw Failure(kUsage, target.string() + " names a folder, and a repair writes a file");
    Json json = document("recording-repair");
    json["file"] = options.file;
    {
        Progress progress("per cent", 100);
        const mcap::Judge any = [](const mcap::Channel&, const mcap::Message&) {};
        if (mcap::verify(reader, any, stepping(reader, progress)).faultCount == 0) {
            json["written"] = Json();
            output.finish(json, options.file + " is whole, so nothing is written\n");
            return kDone;
        }
    }
    mcap::Repaired done;
    try {
        done = repairInto(target, reader);
    } catch (const Failure& failure) {
        if (failure.code != kUsage)
            throw;
        throw Failure(kUsage, options.file + " cannot be repaired: " + failure.what());
    }
    for (const std::string& sentence : done.lost)
        warn("lost: %s", sentence.c_str());
    json["written"] = target.string();
    json["chunks"] = done.chunks;
    json["messages"] = done.messages;
    json["attachments"] = done.attachments;
    json["lost"] = done.lost;
    json["lost-count"] = done.lostCount;
    output.finish(json, formatted("%s: %llu messages in %llu chunks, %llu attachments\n", target.c_str(),
                                  static_cast<unsigned long long>(done.messages),
                                  static_cast<unsigned long long>(done.chunks),
                                  static_cast<unsigned long long>(done.attachments)));
    return kDone;
}

} // namespace

void addRecording(CLI::App& app, Run& run)
{
    const auto options = std::make_shared<Options>();
    CLI::App* command =
        app.add_subcommand("recording", "Files of vqd record: what is in them, and whether all is whole");
    command->require_subcommand(1);
    const struct {
        const char *name, *description;
        int (*work)(const Options&);
        const char* example;
    } kWays[] = {
        {"info", "Shows what is in a file, without reading all of it", info, "vqd recording info shelf.mcap"},
        {"verify", "Reads all of a file, and judges it; the exit code is 6 when something is damaged", verify,
         "vqd recording verify shelf.mcap"},
        {"repair", "Copies what is whole of a file that was cut or damaged into a new one", repair,
         "vqd recording repair shelf.mcap.part -o shelf.mcap"},
    };
    for (const auto& way : kWays) {
        CLI::App* sub = command->add_subcommand(way.name, way.description);
        sub->add_option("file", options->file, "A recording, in the form of MCAP")->type_name("FILE")->required();
        addCommon(*sub, kJson);
        sub->footer(std::string("Example: ") + way.example);
        sub->callback([&run, options, work = way.work] { run = [options, work] { return work(*options); }; });
    }
    command->get_subcommand("repair")
        ->add_option("-o,--output", options->target, "The new file; NAME-repaired.mcap beside the old one by default")
        ->type_name("FILE");
    command->footer("Example: vqd recording info shelf.mcap");
}
