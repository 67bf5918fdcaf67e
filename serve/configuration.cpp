// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A row for each member that a configuration and a camera in it may have.
#include "serve/configuration.h"

#include <algorithm>
#include <span>

#include "host/assignments.h"
#include "host/documents.h"
#include "host/topic_name.h"
#include "serve/json_lines.h"

namespace
{

// A value of the file, and where it stands.
struct Entry {
    const Json& value;
    const JsonLines& lines;
    const std::string& file;
    std::string path;

    Entry at(const std::string& name) const { return {value.at(name), lines, file, path + '/' + name}; }

    [[noreturn]] void fail(const std::string& what) const
    {
        const std::string name = path.substr(path.rfind('/') + 1);
        throw Failure(kUsage, file + ':' + std::to_string(lines.of(path)) + ": \"" + name + "\" " + what);
    }
    void requireObject() const
    {
        if (!value.is_object())
            fail("is not an object");
    }
    std::string text() const
    {
        constexpr size_t kMost = 4000;
        if (!value.is_string() || value.get_ref<const std::string&>().empty())
            fail("is not a text, or an empty one");
        const auto text = value.get<std::string>();
        if (text.size() > kMost || std::ranges::any_of(text, [](unsigned char c) { return c < ' '; }))
            fail("has characters that cannot be shown, or too many of them");
        return text;
    }
    bool yes() const
    {
        if (!value.is_boolean())
            fail("is neither true nor false");
        return value.get<bool>();
    }
    std::string oneOf(const std::array<const char*, 2>& words) const
    {
        if (value != words[0] && value != words[1])
            fail(std::string("is neither \"") + words[0] + "\" nor \"" + words[1] + '"');
        return value.get<std::string>();
    }
};

template <typename Into> struct Member {
    const char* name;
    void (*read)(const Entry& place, Into& into);
};

template <typename Into>
void readMembers(const Entry& place, std::span<const Member<std::type_identity_t<Into>>> members, Into& into)
{
    place.requireObject();
    for (const auto& [name, unused] : place.value.items()) {
        const auto member = std::ranges::find(members, name, &Member<Into>::name);
        if (member == members.end()) {
            std::string known;
            for (const Member<Into>& one : members)
                known += (known.empty() ? "" : ", ") + std::string(one.name);
            place.at(name).fail("is unknown here; known are " + known);
        }
        member->read(place.at(name), into);
    }
}

void readSettings(const Entry& place, CameraWish& wish)
{
    place.requireObject();
    std::vector<Assignment> assignments;
    for (const auto& [name, value] : place.value.items()) {
        try {
            const Json one{{"settings", {{name, value}}}};
            const std::vector<Assignment> read = assignmentsFrom(one, place.file);
            requireFrames(read);
            assignments.insert(assignments.end(), read.begin(), read.end());
        } catch (const Failure& failure) {
            const std::string why = failure.what();
            place.at(name).fail("is refused: " + why.substr(0, why.find('\n'))); // below it, all settings
        }
    }
    std::ranges::stable_sort(assignments, std::less(), &Assignment::setting);
    for (const Assignment& assignment : assignments)
        wish.settings.push_back(std::string(assignment.setting->name) + '=' + assignment.text());
}

void readTopicName(const Entry& place, Publishing& publishing)
{
    publishing.name = place.text();
    if (!isTopicName(publishing.name))
        place.fail(std::string("is refused: ") + kTopicNameRule);
}

// The name is the last, because it cannot be that of all cameras.
constexpr Member<Publishing> kPublishMembers[] = {
    {"images", [](const Entry& place, Publishing& how) { how.images = place.oneOf(kImageWords); }},
    {"depth", [](const Entry& place, Publishing& how) { how.depth = place.oneOf(kDepthWords); }},
    {"points", [](const Entry& place, Publishing& how) { how.points = place.yes(); }},
    {"name", readTopicName},
};
constexpr std::span<const Member<Publishing>> kOfOneCamera(kPublishMembers), kOfAll = kOfOneCamera.first<3>();

PublishWish publishWish(const Entry& place, std::span<const Member<Publishing>> members)
{
    PublishWish wish;
    if (place.value.is_boolean()) {
        wish.wanted = place.yes();
        return wish;
    }
    if (!place.value.is_object())
        place.fail("is neither true nor false nor an object");
    wish.wanted = true;
    readMembers(place, members, wish.how);
    return wish;
}

constexpr Member<CameraWish> kCameraMembers[] = {
    {"name", [](const Entry& place, CameraWish& wish) { wish.name = place.text(); }},
    {"settings", readSettings},
    {"publish", [](const Entry& place, CameraWish& wish) { wish.publish = publishWish(place, kOfOneCamera); }},
    {"record", [](const Entry& place, CameraWish& wish) { wish.record = place.yes(); }},
    {"show", [](const Entry& place, CameraWish& wish) { wish.show = place.yes(); }},
};

void readCameras(const Entry& place, Configuration& configuration)
{
    place.requireObject();
    for (const auto& [name, unused] : place.value.items()) {
        const Entry camera = place.at(name);
        if (!isSerialNumber(name) && !isPort(name))
            camera.fail("is neither a serial number nor a port, as shown by vqd list");
        readMembers(camera, kCameraMembers, configuration.cameras[name]);
    }
}

void readRecordings(const Entry& place, Configuration& configuration)
{
    configuration.recordings = place.text();
    if (configuration.recordings.front() != '/')
        place.fail("is not a folder from the root on, such as /var/lib/vqd/recordings");
}

constexpr std::array<const char*, 2> kUnknownWords{"show", "ignore"};
constexpr Member<Configuration> kMembers[] = {
    {"cameras", readCameras},
    {"unknown", [](const Entry& place, Configuration& to) { to.showsUnknown = place.oneOf(kUnknownWords) == "show"; }},
    {"recordings", readRecordings},
    {"publish", [](const Entry& place, Configuration& to) { to.publish = publishWish(place, kOfAll); }},
};

// Two cameras of one name could not be told apart.
void requireDifferentNames(const Entry& place, const Configuration& configuration)
{
    std::map<std::string, std::string> named, published;
    for (const auto& [camera, wish] : configuration.cameras) {
        const Entry entry = place.at("cameras").at(camera);
        if (!wish.name.empty())
            if (const auto [other, isNew] = named.emplace(wish.name, camera); !isNew)
                entry.at("name").fail("is also the name of " + other->second);
        if (wish.publish && !wish.publish->how.name.empty())
            if (const auto [other, isNew] = published.emplace(wish.publish->how.name, camera); !isNew)
                entry.at("publish").at("name").fail("is also the name under which " + other->second + " is published");
    }
}

// Rather than a server that runs for days and has recorded nothing.
void requireFolder(const Entry& place, const Configuration& configuration)
{
    for (const auto& [camera, wish] : configuration.cameras)
        if (wish.record && configuration.recordings.empty())
            place.at("cameras").at(camera).at("record").fail("needs a folder, from \"recordings\" or --recordings");
}

} // namespace

bool publishesAny(const Configuration& configuration)
{
    return configuration.publish.wanted || std::ranges::any_of(configuration.cameras, [](const auto& camera) {
               return camera.second.publish && camera.second.publish->wanted;
           });
}

bool isSerialNumber(std::string_view text)
{
    return text.size() == 14 && text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

bool isPort(std::string_view text)
{
    constexpr size_t kMost = 32;
    const size_t hyphen = text.find('-');
    return text.size() <= kMost && hyphen != std::string_view::npos && hyphen > 0 && hyphen + 1 < text.size() &&
           text.find_first_not_of("0123456789.-") == std::string_view::npos &&
           text.find('-', hyphen + 1) == std::string_view::npos;
}

Configuration configurationFrom(std::string_view text, const std::string& file, const std::string& recordings)
{
    const Json json = parsedObject(text, file);
    const JsonLines lines(text, file);
    const Entry place{json, lines, file, ""};
    Configuration configuration;
    readMembers(place, kMembers, configuration);
    requireDifferentNames(place, configuration);
    if (!recordings.empty())
        configuration.recordings = recordings;
    requireFolder(place, configuration);
    return configuration;
}
