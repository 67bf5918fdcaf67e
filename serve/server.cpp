// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "serve/server.h"

#include <algorithm>
#include <charconv>
#include <csignal>
#include <ctime>
#include <fstream>
#include <sys/signalfd.h>
#include <sys/statvfs.h>
#include <thread>
#include <unistd.h>

#include "host/documents.h"
#include "host/host_time.h"
#include "host/settings.h"
#include "serve/page_files.h"
#include "worker/runtime_folder.h"

namespace
{

using namespace std::chrono_literals;

constexpr std::string_view kApi = "/api/v1/";
constexpr auto kTick = 50ms; // what is due is done this late at most

Descriptor takeSignals()
{
    sigset_t taken;
    sigemptyset(&taken);
    for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGCHLD})
        sigaddset(&taken, number);
    sigprocmask(SIG_BLOCK, &taken, nullptr);
    signal(SIGCHLD, SIG_DFL); // or the ends of processes could not be waited for
    signal(SIGPIPE, SIG_IGN);
    return Descriptor(signalfd(-1, &taken, SFD_CLOEXEC | SFD_NONBLOCK));
}

std::string utcNow()
{
    const time_t now = time(nullptr);
    tm utc{};
    gmtime_r(&now, &utc);
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

AccessRules rulesFor(const Server::Options& options, const std::string& token)
{
    AccessRules rules{token, loopbackNames()};
    rules.names.push_back(nameInHost(nameOf(options.host)));
    for (const std::string& name : options.names) {
        const bool isOdd = nameOf(name) == name && name.find_first_of(":/@[], ") != std::string::npos;
        if (name.empty() || isOdd)
            throw Failure(kUsage, "'" + name + "' is not a host's name or address");
        rules.names.push_back(nameInHost(nameOf(name)));
    }
    return rules;
}

uint64_t leastFreeOf(uint64_t disk)
{
    constexpr uint64_t kLeast = 1'000'000'000, kTwentieth = 20;
    return std::max(kLeast, disk / kTwentieth);
}

Json diskOf(const std::string& folder)
{
    struct statvfs disk {
    };
    if (folder.empty() || statvfs(folder.c_str(), &disk) != 0)
        return nullptr;
    const uint64_t free = disk.f_bavail * uint64_t{disk.f_frsize}, total = disk.f_blocks * uint64_t{disk.f_frsize};
    return {{"free", free}, {"total", total}, {"low", free < leastFreeOf(total)}};
}

// A number of the query; nothing when it is missing. Fails for anything else.
std::optional<uint64_t> numberIn(const HttpRequest& request, const char* name)
{
    const auto found = request.query.find(name);
    if (found == request.query.end())
        return std::nullopt;
    const std::string& text = found->second;
    uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (text.empty() || error != std::errc() || end != text.data() + text.size())
        throw Failure(kUsage, std::string(name) + " is not a number");
    return number;
}

FrameWish frameWish(const HttpRequest& request)
{
    const bool small = numberIn(request, "small").value_or(0) != 0;
    return {request.id, numberIn(request, "session"), numberIn(request, "after").value_or(0),
            small && request.takesZstd};
}

// The only members of a request are those that are named; values are the worker's to judge.
void requireOnly(const Json& json, std::initializer_list<const char*> names)
{
    for (const auto& [name, unused] : json.items())
        if (std::ranges::find(names, name) == names.end())
            throw Failure(kUsage, "this request has no \"" + name + "\"");
}

Json settingsRequest(const Json& json, const Camera&)
{
    requireOnly(json, {"settings"});
    return {{"do", "set"}, {"settings", json.value("settings", Json())}};
}

Json saveRequest(const Json& json, const Camera& camera)
{
    requireOnly(json, {"serial"});
    const Json& known = camera.parameters();
    const Json identity = known.is_object() ? known.value("camera", Json()) : Json();
    const Json serial = identity.is_object() ? identity.value("serial", Json()) : Json();
    if (!serial.is_string() || json.value("serial", Json()) != serial)
        throw Failure(kUsage, "\"serial\" is not the serial number of this camera, so nothing is saved");
    return {{"do", "save"}};
}

Json regionsRequest(const Json& json, const Camera&)
{
    requireOnly(json, {"regions"});
    return {{"do", "watch"}, {"regions", json.value("regions", Json())}};
}

Json recordRequest(const Json& json, const Camera&)
{
    if (json.value("stop", Json()) == true) {
        requireOnly(json, {"stop"});
        return {{"do", "stop-recording"}};
    }
    Json request{{"do", "record"}};
    for (const auto& [name, value] : json.items())
        if (name != "do")
            request[name] = value;
    return request;
}

constexpr struct {
    std::string_view name;
    Json (*request)(const Json& json, const Camera& camera);
} kPosts[] = {
    {"settings", settingsRequest}, {"save", saveRequest}, {"regions", regionsRequest}, {"record", recordRequest}};

Answer notFound()
{
    return refusedAnswer(404, "there is nothing at this path");
}

// While the page is worked on, its files come from the folder of their sources.
std::string contentOf(const PageFile& file, const std::string& folder)
{
    if (folder.empty())
        return std::string(file.content);
    const std::string_view name = file.path == "/" ? "index.html" : file.path.substr(file.path.rfind('/') + 1);
    std::ifstream source(std::filesystem::path(folder) / name);
    return {std::istreambuf_iterator<char>(source), {}};
}

} // namespace

uint64_t leastFree(const std::string& folder)
{
    const Json disk = diskOf(folder);
    return leastFreeOf(disk.is_null() ? 0 : disk["total"].get<uint64_t>());
}

Server::Server(Options options)
    : m_options(std::move(options)), m_token(newToken()), m_instance(newToken()), m_started(utcNow()),
      m_signals(takeSignals()), m_http(m_options.host, m_options.port, rulesFor(m_options, m_token),
                                       [this](const HttpRequest& request) { return handle(request); }),
      m_tokenFile(runtimeFolder() / ("serve-" + std::to_string(m_http.port()) + ".token"), m_token)
{
    for (const auto& [name, unused] : m_options.configuration.cameras)
        addCamera(name);
}

// A worker that does not end in time is killed with its object; its camera's process then ends by itself.
Server::~Server()
{
    constexpr auto kGrace = 2800ms;
    for (Camera& camera : m_cameras)
        camera.askToEnd();
    for (const auto limit = Clock::now() + kGrace; Clock::now() < limit;) {
        bool ended = true;
        for (Camera& camera : m_cameras)
            ended = camera.hasEnded(Clock::now()) && ended;
        if (ended)
            return;
        std::this_thread::sleep_for(5ms);
    }
}

// Where it listens at all addresses, nobody reaches it under that one, but under a name that was given.
std::string Server::address() const
{
    const bool isEverywhere = m_options.host == "0.0.0.0" || m_options.host == "::";
    const std::string& host = isEverywhere && !m_options.names.empty() ? m_options.names.front() : m_options.host;
    return "http://" + nameOf(host) + ':' + std::to_string(m_http.port());
}

void Server::run()
{
    while (!m_stops) {
        const auto now = Clock::now();
        const bool misses = std::ranges::any_of(m_cameras, [&](const Camera& camera) { return camera.misses(now); });
        if (const std::optional<Look> look = m_lookout.look(now, misses))
            takeLook(*look, now);
        serveCameras(now);
        m_http.serve();
        wait();
    }
}

void Server::addCamera(const std::string& worker)
{
    const auto& wishes = m_options.configuration.cameras;
    const auto wish = wishes.find(worker);
    Camera::Options options{worker,
                            wish != wishes.end() ? wish->second : CameraWish(),
                            m_options.configuration.publish,
                            m_options.workerOptions,
                            [this](uint64_t request, Answer answer) { m_http.answer(request, std::move(answer)); },
                            m_options.say};
    if (options.wish.publish)
        options.publish = *options.wish.publish;
    options.workerOptions.insert(options.workerOptions.end(), {"-q", "-c", worker});
    for (const std::string& setting : options.wish.settings)
        options.workerOptions.insert(options.workerOptions.end(), {"-s", setting});
    m_cameras.emplace_back(std::move(options));
}

void Server::takeLook(const Look& look, Clock::time_point now)
{
    if (look.error != std::exchange(m_error, look.error) && !m_error.empty())
        m_options.say(m_error);
    for (const std::string& worker : workersFor(m_options.configuration, look.cameras))
        if (cameraCalled(worker) == nullptr)
            addCamera(worker);
    for (Camera& camera : m_cameras)
        if (camera.misses(now))
            camera.useWorker(look.workers, now);
}

void Server::serveCameras(Clock::time_point now)
{
    m_next = now + kTick;
    for (Camera& camera : m_cameras)
        if (const auto next = camera.serve(now))
            m_next = std::min(m_next, *next);
}

void Server::wait()
{
    std::vector<pollfd> waiting{{m_signals, POLLIN, 0}, m_http.waiting()};
    m_lookout.addTo(waiting);
    for (const Camera& camera : m_cameras)
        camera.addTo(waiting);
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_next - Clock::now());
    const auto most = std::clamp(std::min(left, m_http.mostWait()), 0ms, std::chrono::milliseconds(kTick));
    poll(waiting.data(), waiting.size(), static_cast<int>(most.count()));
    for (signalfd_siginfo info{}; read(m_signals, &info, sizeof info) == sizeof info;)
        m_stops = m_stops || info.ssi_signo != SIGCHLD;
}

Camera* Server::cameraCalled(std::string_view name)
{
    const auto exact = std::ranges::find(m_cameras, name, &Camera::id);
    const auto camera = exact != m_cameras.end() ? exact : std::ranges::find_if(m_cameras, [&](const Camera& one) {
        return one.isCalled(std::string(name));
    });
    return camera != m_cameras.end() ? &*camera : nullptr;
}

std::optional<Answer> Server::handle(const HttpRequest& request)
{
    for (const PageFile& file : pageFiles())
        if (file.path == request.path)
            return request.method == "POST" ? refusedAnswer(405, "a page takes no POST")
                                            : Answer{.type = file.type, .text = contentOf(file, m_options.pages)};
    std::string_view path = request.path;
    if (!path.starts_with(kApi))
        return notFound();
    path.remove_prefix(kApi.size());
    constexpr std::string_view kCameras = "cameras/";
    const bool isGet = request.method != "POST";
    if (path == "state" || path == "settings") {
        if (!isGet)
            return refusedAnswer(405, "this path takes no POST");
        return jsonAnswer(path == "state" ? state()
                                          : Json{{"schema", "vqd.settings/1"}, {"settings", settingsTable()}});
    }
    const size_t slash = path.rfind('/');
    if (!path.starts_with(kCameras) || slash < kCameras.size())
        return notFound();
    Camera* const camera = cameraCalled(path.substr(kCameras.size(), slash - kCameras.size()));
    if (camera == nullptr)
        return refusedAnswer(404, "there is no such camera", kNoCamera);
    try {
        return handleCamera(request, *camera, path.substr(slash + 1));
    } catch (const Failure& failure) {
        return refusedAnswer(400, failure.what(), failure.code);
    }
}

std::optional<Answer> Server::handleCamera(const HttpRequest& request, Camera& camera, std::string_view what)
{
    const auto now = Clock::now();
    const bool isGet = request.method != "POST";
    const auto post = std::ranges::find_if(kPosts, [&](const auto& row) { return row.name == what; });
    const bool isRead = what == "frame" || what == "parameters";
    if (post == std::end(kPosts) && !isRead)
        return notFound();
    if (isGet != isRead)
        return refusedAnswer(405, isRead ? "this path takes no POST" : "this path takes only POST");
    if (what == "parameters")
        return camera.parameters().is_null()
                   ? refusedAnswer(503, "the camera's parameters are not known yet", kNoCamera)
                   : jsonAnswer(camera.parameters());
    if (what == "frame")
        camera.wantFrame(frameWish(request), now);
    else
        camera.forward(request.id, post->request(parsedObject(request.body, "the request"), camera), now);
    return std::nullopt;
}

Json Server::state() const
{
    const std::string& folder = m_options.configuration.recordings;
    Json json = document("serve");
    json["server"] = {{"version", m_options.version},
                      {"instance", m_instance},
                      {"host", m_options.host},
                      {"port", m_http.port()},
                      {"started", m_started},
                      {"real-time-ns", hostTime().real},
                      {"clients", m_http.connections()},
                      {"error", m_error.empty() ? Json() : Json(m_error)},
                      {"recordings", folder.empty() ? Json() : Json(folder)},
                      {"disk", diskOf(folder)}};
    json["cameras"] = Json::array();
    for (const Camera& camera : m_cameras)
        json["cameras"].push_back(camera.state(Clock::now()));
    return json;
}
