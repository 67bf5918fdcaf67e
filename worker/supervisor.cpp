// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// One thread and one poll: signals, the camera's process, readers that wait for it, and who asks for the state.
#include "worker/supervisor.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/assignments.h"
#include "host/camera_lock.h"
#include "host/usb_devices.h"

#include "worker/answers.h"
#include "worker/runtime_folder.h"

namespace
{

using namespace std::chrono_literals;

constexpr auto kLook = 250ms;                   // how often it looks for cameras
constexpr auto kSilentAfter = 700ms;            // a camera at its slowest sends a frame within 134 ms
constexpr std::chrono::seconds kHangsAfter{60}; // longer than the library waits for anything
constexpr std::chrono::seconds kEndsWithin{5};  // after its last word

bool isPort(const std::string& camera)
{
    return camera.find('-') != std::string::npos;
}

std::filesystem::path usualSocket(const std::string& camera)
{
    return runtimeFolder() / ((camera.empty() ? "camera" : camera) + ".sock");
}

std::map<std::string, std::string> settingsIn(const std::vector<std::string>& texts)
{
    std::map<std::string, std::string> settings;
    for (const Assignment& assignment : parseForFrames(texts))
        settings[assignment.setting->name] = assignment.text();
    return settings;
}

std::vector<Place> attachedPlaces()
{
    std::vector<Place> places;
    for (const UsbCamera& camera : attachedCameras())
        places.push_back({camera.bus, camera.address, camera.port});
    return places;
}

bool isLocked(const Place& place)
{
    return lockHolder(place).has_value();
}

Descriptor takeSignals()
{
    sigset_t taken;
    sigemptyset(&taken);
    for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGCHLD})
        sigaddset(&taken, number);
    struct sigaction hangUp {
    };
    sigaction(SIGHUP, nullptr, &hangUp);
    // nohup wants the worker to outlive its terminal, and what is blocked is not ignored.
    if (hangUp.sa_handler == SIG_IGN)
        sigdelset(&taken, SIGHUP);
    sigprocmask(SIG_BLOCK, &taken, nullptr);
    signal(SIGCHLD, SIG_DFL); // or the ends of processes could not be waited for
    signal(SIGPIPE, SIG_IGN);
    return Descriptor(signalfd(-1, &taken, SFD_CLOEXEC | SFD_NONBLOCK));
}

} // namespace

Supervisor::Supervisor(Options options)
    : m_options(std::move(options.child)), m_say(std::move(options.say)), m_settings(settingsIn(m_options.settings)),
      m_socketPath(options.socket.empty() ? usualSocket(m_options.camera) : options.socket), m_signals(takeSignals()),
      m_socket(m_socketPath), m_status(runtimeFolder() / (std::to_string(getpid()) + ".status")),
      m_server(
          {.state = [this] { return state(); },
           .request = [this](ClientId client, uint32_t number, const Json& json) { request(client, number, json); },
           .linkEnded = nullptr,
           .packer = nullptr}),
      m_rule(isPort(m_options.camera) ? m_options.camera : std::string())
{
    m_server.acceptFrom(m_socket.descriptor());
}

void Supervisor::run()
{
    while (!m_stops) {
        const std::vector<Place> attached = m_child ? std::vector<Place>() : attachedPlaces();
        if (!m_child && m_rule.mayStart(Clock::now(), attached, isLocked))
            startChild();
        else if (!m_child && attached.empty())
            sayOnce("waiting for a camera");
        waitAndServe();
        watch();
    }
    m_child.reset();
}

Json Supervisor::state() const
{
    Json json = m_child && m_lastState.is_object() ? m_lastState : document("worker");
    if (!m_child)
        json["state"] = m_held ? "held" : attachedPlaces().empty() ? "waiting" : "restarting";
    else if (m_streams && json["state"] == "streaming" && Clock::now() - m_lastFrame > kSilentAfter)
        json["state"] = "silent";
    else if (!json.contains("state"))
        json["state"] = "starting";
    json["wanted"] = m_options.camera.empty() ? Json() : Json(m_options.camera);
    json["socket"] = m_socketPath.string();
    json["supervisor"] = getpid();
    json["restarts"] = m_restarts;
    json["error"] = m_error.empty() || m_streams ? Json() : Json(m_error);
    json["last-error"] = m_lastError;
    return json;
}

void Supervisor::request(ClientId client, uint32_t number, const Json& request)
{
    const Json what = request.value("do", Json());
    if (what != "state" && what != "stop")
        throw Failure(kNoCamera, "no camera streams" + (m_error.empty() ? "" : ": " + m_error));
    Json reply{{"ok", true}};
    if (what == "state")
        reply["state"] = state();
    m_stops = m_stops || what == "stop";
    m_server.reply(client, number, reply);
}

void Supervisor::sayOnce(const std::string& sentence)
{
    if (sentence != std::exchange(m_said, sentence))
        m_say(sentence);
}

void Supervisor::startChild()
{
    ChildOptions options = m_options;
    options.settings.clear();
    for (const auto& [name, value] : m_settings)
        options.settings.push_back(name + '=' + value);
    m_lastState = nullptr;
    m_held.reset();
    m_firstFrame.reset();
    m_frames = 0;
    m_lastSign = m_lastFrame = Clock::now();
    try {
        m_child.emplace(options, m_socket.descriptor());
    } catch (const Failure& failure) { // no memory for a process, for instance: that may pass
        failed(failure.what());
        m_rule.ended(Clock::now(), {}, attachedPlaces());
    }
}

void Supervisor::hear(uint16_t kind, const Json& json)
{
    if (kind == VQD_WIRE_STATE)
        hearState(json);
    else if (kind == VQD_WIRE_EVENT)
        hearEvent(json);
}

void Supervisor::hearState(const Json& json)
{
    const bool streams = json.value("state", "") == "streaming" && json.value("frames", uint64_t{0}) > 0;
    if (m_lastState.is_null() || json["state"] != m_lastState["state"])
        m_lastSign = Clock::now();
    m_lastState = json;
    const auto frames = json.value("frames", uint64_t{0});
    if (frames == std::exchange(m_frames, frames))
        return;
    m_lastSign = m_lastFrame = Clock::now();
    if (!m_firstFrame)
        m_firstFrame = m_lastFrame;
    if (!streams || std::exchange(m_streams, true))
        return;
    const Json camera = json.value("camera", Json::object());
    const Json serial = camera.value("serial", Json()), port = camera.value("port", Json());
    const Json name = json.value("name", Json());
    if (m_options.camera.empty()) // from now on it is this one
        m_options.camera = name.is_string() ? name.get<std::string>() : "";
    m_server.acceptFrom(-1);
    m_server.dropReaders(); // they come again, and the camera's process accepts them
    sayOnce("camera " + (serial.is_string() ? serial.get<std::string>() : "without a known serial number") + " at " +
            (port.is_string() ? port.get<std::string>() : "an unknown port") + " streams to " + m_socketPath.string());
}

void Supervisor::hearEvent(const Json& json)
{
    m_lastSign = Clock::now();
    const std::string what = json.value("event", "");
    if (what == "set")
        for (const auto& [name, value] : json["settings"].items())
            m_settings[name] = settingText(value);
    if (what == "lost")
        sayOnce("the camera is lost, searching");
    if (what == "reopened")
        sayOnce("the camera is back");
    if (what == "profile-not-used")
        m_say(json.value("text", ""));
    if (what != "failed")
        return;
    failed(json.value("text", ""));
    const Json camera = json.value("camera", Json());
    if (json.value("held", false) && camera.is_object())
        m_held = Place{camera.value("bus", 0), camera.value("address", 0),
                       camera["port"].is_string() ? camera["port"].get<std::string>() : ""};
}

void Supervisor::failed(const std::string& why)
{
    m_error = why;
    m_lastError = {{"text", why}, {"real-time-ns", hostTime().real}};
    sayOnce(why);
}

void Supervisor::childEnded(int status)
{
    const auto now = Clock::now();
    m_child->listen([this](uint16_t kind, const Json& json) { hear(kind, json); });
    m_child.reset();
    m_streams = false;
    m_server.acceptFrom(m_socket.descriptor());
    m_stops = m_stops || (WIFEXITED(status) && WEXITSTATUS(status) == kDone); // a reader has asked for it
    if (WIFSIGNALED(status))
        failed("the camera's process was ended by signal " + std::to_string(WTERMSIG(status)));
    ++m_restarts;
    m_rule.ended(now,
                 {m_firstFrame ? m_lastFrame - *m_firstFrame : 0s, m_held && isLocked(*m_held) ? m_held : std::nullopt},
                 attachedPlaces());
}

void Supervisor::watch()
{
    if (!m_child)
        return;
    if (Clock::now() - m_lastSign > (m_child->link() < 0 ? kEndsWithin : kHangsAfter)) {
        sayOnce("the camera's process gives no sign of life, so it is ended");
        m_lastSign = Clock::now();
        m_child->kill();
    }
    if (const std::optional<int> status = m_child->ended())
        childEnded(*status);
}

void Supervisor::answerStatus()
{
    const Descriptor asking(accept4(m_status.descriptor(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    const std::string text = documentText(state());
    (void)!send(asking, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

void Supervisor::waitAndServe()
{
    std::vector<pollfd> waiting{{m_signals, POLLIN, 0}, {m_status.descriptor(), POLLIN, 0}};
    const bool listens = m_child && m_child->link() >= 0;
    if (listens)
        waiting.push_back({m_child->link(), POLLIN, 0});
    const size_t own = waiting.size();
    m_server.addTo(waiting);
    poll(waiting.data(), waiting.size(), static_cast<int>(kLook.count()));
    if ((waiting[0].revents & POLLIN) != 0)
        for (signalfd_siginfo info{}; read(m_signals, &info, sizeof info) == sizeof info;)
            m_stops = m_stops || info.ssi_signo != SIGCHLD;
    if ((waiting[1].revents & POLLIN) != 0)
        answerStatus();
    if (listens && waiting[2].revents != 0) {
        m_child->listen([this](uint16_t kind, const Json& json) { hear(kind, json); });
        if (m_child->link() < 0)
            m_lastSign = Clock::now();
    }
    m_server.serve(std::span(waiting).subspan(own));
}
