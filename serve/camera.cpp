// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "serve/camera.h"

#include <algorithm>
#include <ctime>

#include "host/documents.h"
#include "worker/runtime_folder.h"
#include "worker/worker_process.h"

namespace
{

// A member of what may be anything.
Json memberOf(const Json& json, const char* name)
{
    return json.is_object() ? json.value(name, Json()) : Json();
}

std::string textOf(const Json& json)
{
    return json.is_string() ? json.get<std::string>() : "";
}

// "left-20261125-100000", for a recording that nobody gave a name
std::string recordingName(std::string name)
{
    const auto isOdd = [](char c) { return !isalnum(static_cast<unsigned char>(c)) && c != '-'; };
    std::ranges::replace_if(name, isOdd, '-');
    const time_t now = time(nullptr);
    tm utc{};
    gmtime_r(&now, &utc);
    char stamp[32];
    strftime(stamp, sizeof stamp, "-%Y%m%d-%H%M%S", &utc);
    return "camera-" + name.substr(0, 40) + stamp;
}

// What the state of a worker has, and the server's state passes on.
constexpr const char* kFromWorker[] = {
    "error",    "last-error",  "warning",          "session",     "process",           "supervisor",
    "restarts", "socket",      "profile",          "frames",      "frames-per-second", "dropped",
    "reopens",  "longest-gap", "failed-transfers", "temperature", "recording"};

} // namespace

Camera::Camera(Options options)
    : m_options(std::move(options)), m_own(kThisProgram, workerWords(m_options.workerOptions)),
      m_publisher(m_options.publish, [this](const std::string& why) { m_options.say(title() + ": " + why); }),
      m_frames(m_options.answer), m_contact({.connected = [this] { connected(); },
                                             .disconnected = [this] { m_frames.disconnected(); },
                                             .message = [this](const Received& message) { heard(message); },
                                             .state = [this](const Json& json) { hearState(json, m_now); }})
{
}

bool Camera::isCalled(const std::string& name) const
{
    const Json camera = memberOf(m_state, "camera");
    return name == id() || (!name.empty() && name == textOf(memberOf(camera, "port")));
}

std::string Camera::title() const
{
    return m_options.wish.name.empty() ? id() : m_options.wish.name;
}

Json Camera::state(Clock::time_point now) const
{
    const Json camera = memberOf(m_state, "camera");
    Json json{{"id", id()},
              {"name", title()},
              {"serial", isSerialNumber(id()) ? Json(id()) : memberOf(camera, "serial")},
              {"port", isPort(id()) ? Json(id()) : memberOf(camera, "port")},
              {"product", memberOf(camera, "product")},
              {"show", m_options.wish.show}};
    const std::string state = textOf(memberOf(m_state, "state"));
    const bool isThere = m_contact.isAnswering(now) && !state.empty();
    const bool isLost = m_isLost && (state == "streaming" || state == "silent");
    json["state"] = !isThere ? "restarting" : isLost ? "lost" : state;
    for (const char* name : kFromWorker)
        json[name] = isThere ? memberOf(m_state, name) : Json();
    if (!isThere && !m_trouble.empty())
        json["error"] = m_trouble;
    json["settings"] = memberOf(m_parameters, "settings");
    json["lens"] = memberOf(m_parameters, "lens");
    const Json regions = isThere ? memberOf(m_state, "regions") : Json();
    json["regions"] = regions.is_array() ? regions : Json::array();
    json["publish"] = m_publisher.state(textOf(json["serial"]));
    json["events"] = m_events;
    return json;
}

bool Camera::fits(const FoundWorker& worker) const
{
    const Json camera = memberOf(worker.state, "camera");
    const bool isOurs = m_own.process() != 0 && memberOf(worker.state, "supervisor") == m_own.process();
    return !isOurs && (id() == textOf(memberOf(worker.state, "wanted")) || id() == textOf(memberOf(camera, "serial")) ||
                       id() == textOf(memberOf(camera, "port")));
}

// One of ours may have been started before the other knew its camera, and would then wait for ever.
void Camera::useWorker(std::span<const FoundWorker> found, Clock::time_point now)
{
    m_looked = now;
    const auto worker = std::ranges::find_if(found, [this](const FoundWorker& one) { return fits(one); });
    if (worker == found.end()) {
        startWorker(now);
        return;
    }
    m_own.askToEnd();
    m_followsOwn = false;
    m_contact.follow(worker->socket, worker->status);
}

void Camera::startWorker(Clock::time_point now)
{
    try {
        if (!m_own.start(now))
            return;
        m_trouble.clear();
        m_followsOwn = true;
        const std::filesystem::path folder = runtimeFolder();
        m_contact.follow(folder / (id() + ".sock"), folder / (std::to_string(m_own.process()) + ".status"));
    } catch (const std::exception& failure) {
        m_trouble = failure.what();
    }
}

bool Camera::misses(Clock::time_point now) const
{
    constexpr std::chrono::seconds kPause{5};
    if (!m_followsOwn || m_own.process() == 0)
        return !m_contact.isAnswering(now);
    return memberOf(m_state, "state") == "held" && now - m_looked > kPause;
}

void Camera::forward(uint64_t request, const Json& json, Clock::time_point now)
{
    if (!m_contact.isConnected()) {
        m_options.answer(request, refusedAnswer(503, "the camera's worker is not there", kNoCamera));
        return;
    }
    const bool watches = json["do"] == "watch";
    m_contact.request(json, now, [this, request, watches, regions = json.value("regions", Json())](const Json& reply) {
        if (watches && memberOf(reply, "ok") == true)
            m_regions = regions;
        m_options.answer(request, reply.is_null()
                                      ? refusedAnswer(504, "the camera's worker does not answer", kCameraLost)
                                      : replyAnswer(reply));
    });
}

std::optional<Camera::Clock::time_point> Camera::serve(Clock::time_point now)
{
    m_now = now;
    if (m_own.ended(now) && m_followsOwn) {
        m_trouble = "the camera's worker has ended";
        m_contact.follow({}, {});
    }
    m_contact.serve(now);
    m_publisher.serve(m_contact.isConnected() ? m_contact.socket().string() : "", now);
    return m_frames.giveUp(now);
}

void Camera::askToEnd()
{
    m_publisher.askToEnd();
    m_own.askToEnd();
}

bool Camera::hasEnded(Clock::time_point now)
{
    const bool isPublished = !m_publisher.hasEnded(now);
    return (m_own.process() == 0 || m_own.ended(now)) && !isPublished;
}

void Camera::connected()
{
    m_isLost = false;
    m_frames.connected([this](uint64_t after) { m_contact.pull(after); }, m_now);
    if (!m_regions.empty())
        m_contact.request({{"do", "watch"}, {"regions", m_regions}}, m_now, [](const Json&) {});
}

void Camera::heard(const Received& message)
{
    constexpr size_t kMostEvents = 20;
    switch (message.prefix.kind) {
    case VQD_WIRE_FRAME:
        m_frames.came(message, m_now);
        break;
    case VQD_WIRE_PARAMETERS:
        m_parameters = parsedObject(message.text(), "the worker's parameters");
        break;
    case VQD_WIRE_EVENT:
        m_events.push_back(parsedObject(message.text(), "the worker's event"));
        if (m_events.size() > kMostEvents)
            m_events.pop_front();
        hearEvent(m_events.back().value("event", ""));
        break;
    default:
        break;
    }
}

void Camera::hearEvent(const std::string& event)
{
    if (event == "lost" || event == "reopened")
        m_isLost = event == "lost";
}

void Camera::hearState(const Json& json, Clock::time_point now)
{
    m_state = json;
    const std::string state = textOf(memberOf(json, "state")), error = textOf(memberOf(json, "error"));
    if (const std::string sentence = title() + ": " + state + (error.empty() ? "" : ", " + error); sentence != m_said) {
        m_said = sentence;
        m_options.say(sentence);
    }
    if (m_options.wish.record && state == "streaming")
        recordIfWished(now);
}

// Once for each process of the camera, since a recording ends with it.
void Camera::recordIfWished(Clock::time_point now)
{
    const auto session = m_state.value("session", uint64_t{0});
    if (!m_contact.isConnected() || session == std::exchange(m_recordedSession, session))
        return;
    m_contact.request({{"do", "record"}, {"name", recordingName(title())}}, now, [this](const Json& reply) {
        if (memberOf(reply, "ok") != true)
            m_options.say(title() + " is not recorded: " + textOf(memberOf(reply, "error")));
    });
}
