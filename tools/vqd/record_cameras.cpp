// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Requests to workers, and what is left to do when one of them begins a new session.
#include <algorithm>
#include <ctime>
#include <thread>

#include "interrupt.h"
#include "messages.h"
#include "options.h"
#include "record.h"

namespace
{

using namespace std::chrono_literals;
using Seconds = std::chrono::duration<double>;

constexpr int kPatienceMs = 10'000, kStopMs = 2'000, kStateMs = 1'000;
constexpr auto kBetweenLooks = 100ms;
constexpr auto kMostUnheard = 5s;    // of a worker, which answers at once
constexpr auto kMostAway = 60s;      // without frames, where a number of them was asked for
constexpr auto kMostToEnd = 30s;     // for what waits in memory, on a disk that is slow
constexpr auto kLateAfterLimit = 2s; // the worker ends it by itself before that, unless it has no camera

std::string timeForNames()
{
    char text[32];
    const time_t now = time(nullptr);
    tm local{};
    strftime(text, sizeof text, "%Y%m%d-%H%M%S", localtime_r(&now, &local));
    return text;
}

uint64_t countIn(const Json& json, const char* name)
{
    const auto member = json.find(name);
    return member != json.end() && member->is_number() ? member->get<uint64_t>() : 0;
}

double numberIn(const Json& json, const char* name)
{
    const auto member = json.find(name);
    return member != json.end() && member->is_number() ? member->get<double>() : 0;
}

std::string textIn(const Json& json, const char* name)
{
    const auto member = json.find(name);
    return member != json.end() && member->is_string() ? member->get<std::string>() : "";
}

} // namespace

void Recorded::add(const Json& state)
{
    frames += countIn(state, "frames");
    lost += countIn(state, "dropped");
    notRecorded += countIn(state, "not-recorded");
    bytes += countIn(state, "bytes");
    seconds += numberIn(state, "seconds");
    bytesPerSecond = numberIn(state, "bytes-per-second");
    if (state.contains("files") && state["files"].is_array())
        for (const Json& file : state["files"])
            if (file.is_string())
                files.push_back(file.get<std::string>());
}

void Recorded::add(const Recorded& other)
{
    frames += other.frames;
    lost += other.lost;
    notRecorded += other.notRecorded;
    bytes += other.bytes;
    bytesPerSecond += other.bytesPerSecond;
    files.insert(files.end(), other.files.begin(), other.files.end());
}

CameraRecording::CameraRecording(WorkerCamera& camera, const RecordOptions& options)
    : m_camera(camera), m_options(options),
      m_name(options.name.empty() ? camera.name() + '-' + timeForNames() : options.name)
{
}

CameraRecording::~CameraRecording()
{
    if (m_runs && !m_done)
        stop();
}

void CameraRecording::start()
{
    begin(m_options);
}

void CameraRecording::begin(const RecordOptions& limits)
{
    Json request = m_options.request;
    request["do"] = "record";
    request["name"] = m_name;
    request["part"] = m_part;
    if (limits.frames > 0)
        request["frames"] = limits.frames;
    if (limits.seconds > 0)
        request["seconds"] = limits.seconds;
    const Json reply = m_camera.ask(request, kPatienceMs);
    const Json state = m_camera.ask({{"do", "state"}}, kPatienceMs);
    m_session = countIn(state.value("state", Json::object()), "session");
    m_runs = true;
    m_now = {};
    const std::filesystem::path file = textIn(reply.value("recording", Json::object()), "file");
    std::error_code unknown;
    if (!std::filesystem::equivalent(file.parent_path(), m_options.folder, unknown))
        note("%s has a worker already, which records to %s", m_camera.title().c_str(), file.parent_path().c_str());
}

void CameraRecording::look(bool workersRun)
{
    if (m_done)
        return;
    giveUpInTime();
    Json state;
    try {
        state = m_camera.ask({{"do", "state"}}, kStateMs).value("state", Json::object());
    } catch (const Failure& failure) {
        return hearsNothing(failure, workersRun);
    }
    if (m_done)
        return;
    m_heard = Clock::now();
    const std::string how = textIn(state, "state");
    const bool streams = how == "streaming" && countIn(state, "frames") > 0;
    if (!streams && how != "silent" && !std::exchange(m_away, true))
        note("%s has no frames now (%s), the recording waits", m_camera.title().c_str(), how.c_str());
    if (countIn(state, "session") == m_session && state["recording"].is_object())
        take(state["recording"]);
    else if (streams && !m_stopped)
        goOn();
    else if (m_stopped)
        end();
    if (streams && std::exchange(m_away, false))
        note("%s is back", m_camera.title().c_str());
}

// Its worker begins a new session, or is gone.
void CameraRecording::hearsNothing(const Failure& failure, bool workersRun)
{
    detail("%s: %s", m_camera.title().c_str(), failure.what());
    if (Clock::now() - m_heard < kMostUnheard)
        return;
    if (!workersRun || m_stopped)
        return end(Failure(kFailed, "its worker does not answer, so it is not known what became of the recording"));
    if (!std::exchange(m_away, true))
        note("%s: its worker does not answer, the recording waits", m_camera.title().c_str());
}

void CameraRecording::take(const Json& recording)
{
    const uint64_t before = m_now.frames;
    m_now = {};
    m_now.add(recording);
    m_part = std::max(m_part, static_cast<int>(countIn(recording, "part")));
    if (m_now.frames != before)
        m_frame = Clock::now();
    const std::string how = textIn(recording, "state");
    if (how == "failed")
        end(Failure(kFailed, textIn(recording, "error")));
    else if (how == "done" || (how == "cut" && m_stopped)) // otherwise a new session follows
        end();
}

// The files of the session before are complete or what was left of them; a new one begins with what is left to do.
void CameraRecording::goOn()
{
    m_before = all();
    m_before.bytesPerSecond = 0;
    m_now = {};
    RecordOptions left = m_options;
    if (m_options.frames > 0 && m_before.frames >= m_options.frames)
        return end();
    left.frames -= m_options.frames > 0 ? m_before.frames : 0;
    if (m_options.seconds > 0)
        left.seconds = std::max(0.1, m_options.seconds - Seconds(Clock::now() - m_began).count());
    ++m_part;
    try {
        begin(left);
    } catch (const Failure& failure) {
        end(failure);
    }
}

void CameraRecording::giveUpInTime()
{
    const auto now = Clock::now();
    if (m_stopped && now - *m_stopped > kMostToEnd)
        return end(Failure(kFailed, "the recording does not end"));
    if (m_options.frames > 0 && now - m_frame > kMostAway) {
        stop();
        return end(Failure(kCameraLost, "no frames come"));
    }
    if (m_options.seconds > 0 && now - m_began > Seconds(m_options.seconds) + kLateAfterLimit)
        stop();
}

void CameraRecording::stop()
{
    if (m_stopped)
        return;
    m_stopped = Clock::now();
    try {
        m_camera.ask({{"do", "stop-recording"}}, kStopMs);
    } catch (const Failure& failure) {
        detail("%s: %s", m_camera.title().c_str(), failure.what()); // it has no session, so nothing is recorded either
    }
}

void CameraRecording::end(std::optional<Failure> failure)
{
    m_done = true;
    if (failure)
        m_failure.emplace(m_camera.named(*failure));
}

Recorded CameraRecording::all() const
{
    Recorded all = m_before;
    all.add(m_now);
    all.seconds += m_now.seconds;
    return all;
}

WorkerStart workersFor(const RecordOptions& options)
{
    WorkerStart start{options.settings, options.port, {"--recordings", options.folder}};
    if (!options.keepFree.empty())
        start.options.insert(start.options.end(), {"--keep-free", options.keepFree});
    return start;
}

CameraRecordings recordingsOf(AllCameras& cameras, const RecordOptions& options)
{
    if (!options.name.empty() && cameras.all().size() > 1)
        throw Failure(kUsage, "a file can hold one camera only; with several, -o names the folder");
    CameraRecordings recordings;
    for (WorkerCamera& camera : cameras.all())
        recordings.push_back(std::make_unique<CameraRecording>(camera, options));
    return recordings;
}

void record(AllCameras& cameras, CameraRecordings& recordings, const std::function<void(const Recorded& all)>& progress)
{
    for (const auto& recording : recordings) {
        try {
            recording->start();
        } catch (const Failure& failure) {
            throw recording->camera().named(failure);
        }
    }
    const auto isDone = [](const auto& recording) { return recording->isDone(); };
    while (!std::ranges::all_of(recordings, isDone)) {
        Recorded all;
        const bool workersRun = cameras.workersRun();
        for (const auto& recording : recordings) {
            if (interrupted())
                recording->stop();
            recording->look(workersRun);
            const Recorded one = recording->all();
            all.add(one);
            all.seconds = std::max(all.seconds, one.seconds);
        }
        progress(all);
        std::this_thread::sleep_for(kBetweenLooks);
    }
}
