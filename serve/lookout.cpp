// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "serve/lookout.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/camera_list.h"
#include "host/documents.h"
#include "host/usb_devices.h"
#include "worker/runtime_folder.h"
#include "worker/status.h"

namespace
{

using namespace std::chrono_literals;

constexpr auto kGlancePeriod = 300ms;
constexpr auto kLeastPause = 1s; // between two looks
constexpr auto kPatience = 20s;  // several cameras that do not answer take some seconds each

std::string textOf(const Json& json, const char* name)
{
    const Json member = json.is_object() ? json.value(name, Json()) : Json();
    return member.is_string() ? member.get<std::string>() : "";
}

// Where the supervisor of a worker tells its state; empty when it is not in the usual folders.
std::filesystem::path statusOf(const Json& state)
{
    for (const std::filesystem::path& folder : runtimeFolders()) {
        const std::filesystem::path path = folder / (state.value("supervisor", Json()).dump() + ".status");
        std::error_code unreadable;
        if (std::filesystem::is_socket(path, unreadable))
            return path;
    }
    return {};
}

Look lookFrom(const std::string& text)
{
    const Json json = parsedObject(text, "what was seen");
    Look look{{}, {}, textOf(json, "error")};
    for (const Json& camera : json.at("cameras"))
        look.cameras.push_back({textOf(camera, "port"), textOf(camera, "serial")});
    for (const Json& state : json.at("workers"))
        if (const std::filesystem::path status = statusOf(state); !status.empty())
            look.workers.push_back({textOf(state, "socket"), status, state});
    return look;
}

} // namespace

Json lookAround()
{
    Json json{{"cameras", Json::array()}, {"error", nullptr}};
    try {
        for (const ListedCamera& camera : listCameras())
            json["cameras"].push_back(identityJson(camera));
    } catch (const Failure& failure) {
        if (failure.code != kNoCamera)
            json["error"] = failure.what();
    }
    json["workers"] = machineStatus()["workers"];
    return json;
}

Lookout::~Lookout()
{
    end();
}

std::optional<Look> Lookout::look(Clock::time_point now, bool misses)
{
    m_isDue = hasChanged(now) || misses || m_isDue;
    if (m_isDue && m_process == 0 && now >= m_notBefore)
        start(now);
    if (m_process == 0)
        return std::nullopt;
    try {
        const std::optional<std::string> text = m_text->take();
        if (!text && now - m_started < kPatience)
            return std::nullopt;
        end();
        return lookFrom(text.value_or(""));
    } catch (const std::exception&) { // it was killed, or hung: cameras may be on their way in or out
        end();
        m_isDue = true;
        return std::nullopt;
    }
}

void Lookout::addTo(std::vector<pollfd>& waiting) const
{
    if (m_text)
        waiting.push_back(m_text->waiting());
}

bool Lookout::hasChanged(Clock::time_point now)
{
    if (now < m_nextGlance)
        return false;
    m_nextGlance = now + kGlancePeriod;
    std::vector<Place> places;
    for (const UsbCamera& camera : attachedCameras())
        places.push_back({camera.bus, camera.address, camera.port});
    return places != std::exchange(m_places, places);
}

void Lookout::start(Clock::time_point now)
{
    m_isDue = false;
    m_started = now;
    m_notBefore = now + kLeastPause;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return;
    Descriptor ours(ends[0]);
    const Descriptor theirs(ends[1]);
    fcntl(ours, F_SETFL, O_NONBLOCK);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, theirs, STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY,
                                     0); // what the library says of others' cameras
    posix_spawnattr_t attributes;
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    posix_spawnattr_setsigmask(&attributes, &none);
    char name[] = "vqd", command[] = "serve", option[] = "--look";
    char* const arguments[] = {name, command, option, nullptr};
    if (posix_spawn(&m_process, "/proc/self/exe", &actions, &attributes, arguments, environ) == 0)
        m_text.emplace(std::move(ours));
    else
        m_process = 0;
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
}

void Lookout::end()
{
    if (m_process == 0)
        return;
    kill(m_process, SIGKILL); // it has said all, or never will
    waitpid(m_process, nullptr, 0);
    m_process = 0;
    m_text.reset();
}
