// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A row for each member.
#include "recording/record_request.h"

#include <algorithm>

#include "host/failure.h"
#include "host/formatted.h"
#include "recording/part_file.h"

namespace
{

constexpr int kMostParts = 999'999;
constexpr double kMostSeconds = 1e9, kMostFrames = 1e15, kMostSplit = 1e15;

[[noreturn]] void refuse(const std::string& member, const std::string& expected)
{
    throw Failure(kUsage, "\"" + member + "\" of a recording is not " + expected);
}

bool flag(const std::string& name, const Json& value)
{
    if (!value.is_boolean())
        refuse(name, "true or false");
    return value.get<bool>();
}

// Comparisons with NaN are false, so that is refused, too.
double number(const std::string& name, const Json& value, double least, double most)
{
    if (!value.is_number() || !(value.get<double>() >= least && value.get<double>() <= most))
        refuse(name, formatted("a number from %.15g to %.15g", least, most));
    return value.get<double>();
}

template <typename Integer> Integer whole(const std::string& name, const Json& value, double most)
{
    if (!value.is_number_integer())
        refuse(name, "a whole number");
    return static_cast<Integer>(number(name, value, 1, most));
}

std::string text(const std::string& name, const Json& value)
{
    if (!value.is_string())
        refuse(name, "a text");
    return value.get<std::string>();
}

// Of the levels of a topic, as ROS 2 allows them.
std::string topics(const std::string& name, const Json& value)
{
    const std::string topic = text(name, value);
    const auto isLetter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; };
    const auto isAllowed = [&](char c) { return isLetter(c) || (c >= '0' && c <= '9'); };
    if (topic.empty() || topic.size() > 64 || !isLetter(topic[0]) || !std::ranges::all_of(topic, isAllowed))
        refuse(name, "a name of 1 to 64 letters, digits and _, the first of them no digit");
    return topic;
}

using Take = void (*)(RecordRequest& request, const std::string& name, const Json& value);

constexpr struct {
    const char* name;
    Take take;
} kMembers[] = {
    {"do", [](RecordRequest&, const std::string&, const Json&) {}},
    {"name", [](RecordRequest& r, const std::string& n, const Json& v) { r.name = text(n, v); }},
    {"topics", [](RecordRequest& r, const std::string& n, const Json& v) { r.topics = topics(n, v); }},
    {"part", [](RecordRequest& r, const std::string& n, const Json& v) { r.part = whole<int>(n, v, kMostParts); }},
    {"compact", [](RecordRequest& r, const std::string& n, const Json& v) { r.compact = flag(n, v); }},
    {"images", [](RecordRequest& r, const std::string& n, const Json& v) { r.images = flag(n, v); }},
    {"compress", [](RecordRequest& r, const std::string& n, const Json& v) { r.compress = flag(n, v); }},
    {"frames",
     [](RecordRequest& r, const std::string& n, const Json& v) { r.frames = whole<uint64_t>(n, v, kMostFrames); }},
    {"seconds",
     [](RecordRequest& r, const std::string& n, const Json& v) { r.seconds = number(n, v, 0.001, kMostSeconds); }},
    {"split-bytes",
     [](RecordRequest& r, const std::string& n, const Json& v) {
         r.splitBytes = static_cast<uint64_t>(number(n, v, kLeastSplitBytes, kMostSplit));
     }},
    {"split-seconds", [](RecordRequest& r, const std::string& n,
                         const Json& v) { r.splitSeconds = number(n, v, kLeastSplitSeconds, kMostSeconds); }},
};

} // namespace

RecordRequest recordRequestFrom(const Json& json)
{
    RecordRequest request;
    for (const auto& [name, value] : json.items()) {
        const auto member =
            std::ranges::find_if(kMembers, [&, &key = name](const auto& row) { return key == row.name; });
        if (member == std::end(kMembers))
            throw Failure(kUsage, "a recording has no \"" + name + "\"");
        member->take(request, name, value);
    }
    requireRecordingName(request.name);
    if (request.compact && !request.compress)
        throw Failure(kUsage, "a compact recording cannot be one that is not compressed");
    return request;
}
