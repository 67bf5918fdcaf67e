// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A row for each member that a configuration and a camera in it may have.
#include "serve/configuration.h"

#include <algorithm>

#include "host/assignments.h"
#include "host/documents.h"
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
};

template <typename Into> struct Member {
    const char* name;
    void (*read)(const Entry& place, Into& into);
};

template <typename Into, size_t N> void readMembers(const Entry& place, const Member<Into> (&members)[N], Into& into)
{
    place.requireObject();
    for (const auto& [name, unused] : place.value.items()) {
        const auto member = std::ranges::find(members, name, &Member<Into>::name);
        if (member == std::end(members)) {
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
            place.at(name).fail("is refused: " + why.substr(0, why.find('\n'))); // the list of all settings follows
        }
    }
    std::ranges::stable_sort(assignments, std::less(), &Assignment::setting);
    for (const Assignment& assignment : assignments)
        wish.settings.push_back(std::string(assignment.setting->name) + '=' + assignment.text());
}

constexpr Member<CameraWish> kCameraMembers[] = {
    {"name", [](const Entry& place, CameraWish& wish) { wish.name = place.text(); }},
    {"settings", readSettings},
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

void readUnknown(const Entry& place, Configuration& configuration)
{
    if (place.value != "show" && place.value != "ignore")
        place.fail("is neither \"show\" nor \"ignore\"");
    configuration.showsUnknown = place.value == "show";
}

void readRecordings(const Entry& place, Configuration& configuration)
{
    configuration.recordings = place.text();
    if (configuration.recordings.front() != '/')
        place.fail("is not a folder from the root on, such as /var/lib/vqd/recordings");
}

constexpr Member<Configuration> kMembers[] = {
    {"cameras", readCameras},
    {"unknown", readUnknown},
    {"recordings", readRecordings},
};

// Two cameras of one name could not be told apart.
void requireDifferentNames(const Entry& place, const Configuration& configuration)
{
    std::map<std::string, std::string> named;
    for (const auto& [camera, wish] : configuration.cameras)
        if (!wish.name.empty())
            if (const auto [other, isNew] = named.emplace(wish.name, camera); !isNew)
                place.at("cameras").at(camera).at("name").fail("is also the name of " + other->second);
}

} // namespace

bool isSerialNumber(std::string_view text)
{
    return text.size() == 14 && text.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

bool isPort(std::string_view text)
{
    constexpr size_t kMost = 32;
    const size_t hyphen = text.find('-');
    return text.size() <= kMost && hyphen != std::string_view::npos && hyphen > 0 && hyphen + 1 < text.size() &&
           text.find_first_not_of("0123456789.-") == std::string_view::npos &&
           text.find('-', hyphen + 1) == std::string_view::npos;
}

Configuration configurationFrom(std::string_view text, const std::string& file)
{
    const Json json = parsedObject(text, file);
    const JsonLines lines(text, file);
    const Entry place{json, lines, file, ""};
    Configuration configuration;
    readMembers(place, kMembers, configuration);
    requireDifferentNames(place, configuration);
    return configuration;
}
