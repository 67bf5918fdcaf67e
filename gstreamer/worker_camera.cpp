// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Which worker is meant, what it says of its camera, and frames.
#include "gstreamer/worker_camera.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "worker/client/json_member.h"

using std::chrono::milliseconds, std::chrono::steady_clock;

namespace
{

constexpr int kStepMs = 50;                 // how long a pipeline that is stopped may have to wait
constexpr int kConnectMs = 2'000;           // a worker that was started a moment ago listens by then
constexpr int kAnswerMs = 1'000;            // for what workers answer at once
constexpr int kSettingsMs = 10'000;         // a setting takes up to 0.4 s
constexpr int kStepsUntilAsking = 20;       // without a frame
constexpr int kUnreachedIsGone = 3;         // when it is asked so often in a row
constexpr int64_t kMeasureNs = 400'000'000; // for a rate that the jitter of a few milliseconds does not change
constexpr int kMostWorkers = 64;            // more than the client lists

std::string textIn(const char* object, const char* name)
{
    char text[256];
    return vqdc_json_string(vqdc_json_member(object, name), text, sizeof text);
}

// The workers that are meant: those of this name, or else those whose camera has this serial number.
std::vector<std::string> matching(const std::vector<vqd_client_worker>& workers, const std::string& wanted)
{
    std::vector<std::string> names;
    for (const vqd_client_worker& worker : workers)
        if (wanted == worker.name)
            return {wanted};
        else if (wanted.empty() || wanted == worker.serial)
            names.emplace_back(worker.name);
    return names;
}

std::string joined(const std::vector<std::string>& names)
{
    std::string text;
    for (const std::string& name : names)
        text += (text.empty() ? "" : ", ") + name;
    return text;
}

} // namespace

bool WorkerCamera::fail(Trouble::Kind kind, const std::string& sentence)
{
    m_trouble = {kind, sentence + '.'};
    return false;
}

// The names of the workers that are meant, as soon as there are any.
std::vector<std::string> WorkerCamera::find(const std::string& wanted)
{
    const auto deadline = steady_clock::now() + milliseconds(kConnectMs);
    for (;;) {
        std::vector<vqd_client_worker> workers(kMostWorkers);
        const int count = vqd_client_list(workers.data(), kMostWorkers, kAnswerMs, &m_error);
        workers.resize(static_cast<size_t>(std::clamp(count, 0, kMostWorkers)));
        std::vector<std::string> names = matching(workers, wanted);
        if (!names.empty() || steady_clock::now() >= deadline)
            return names;
        std::this_thread::sleep_for(milliseconds(kStepMs));
    }
}

bool WorkerCamera::connect(const std::string& wanted)
{
    std::string name = wanted;
    if (wanted.find('/') == std::string::npos) {
        const std::vector<std::string> names = find(wanted);
        if (names.empty() && wanted.empty())
            return fail(Trouble::kNotFound, "No worker is running: start one with 'vqd worker'");
        if (names.empty())
            return fail(Trouble::kNotFound,
                        "No worker has the camera " + wanted + ": start one with 'vqd worker -c " + wanted + "'");
        if (names.size() > 1)
            return fail(Trouble::kNotFound, "The property serial must name one of these workers: " + joined(names));
        name = names[0];
    }
    m_client = vqd_client_connect(name.c_str(), kConnectMs, &m_error);
    if (m_client == nullptr)
        return fail(Trouble::kNotFound,
                    "Start a worker with 'vqd worker', or name one that is running: " + std::string(m_error.text));
    return mayDeliver(vqd_client_state(m_client));
}

// A worker whose camera is just being opened, silent or searched for has frames by and by. Any other says why it has
// none.
bool WorkerCamera::mayDeliver(const char* state)
{
    const std::string how = textIn(state, "state"), error = textIn(state, "error");
    const bool held = how == "held";
    if (!held && how != "waiting" && how != "restarting")
        return true;
    return fail(held ? Trouble::kBusy : Trouble::kNotFound,
                "The worker has no camera to take frames from" + (error.empty() ? "" : ": " + error));
}

// The last thing that a worker says of a session is why it ends.
bool WorkerCamera::failLost()
{
    std::string why = m_error.text;
    while (const char* event = vqd_client_event(m_client, nullptr))
        if (textIn(event, "event") == "failed")
            why = textIn(event, "text");
    return fail(Trouble::kLost, "No more frames come: " + why);
}

// A worker that is busy answers later. One that has found its camera meanwhile ends this connection, and the next frame
// comes by another.
bool WorkerCamera::stillHasCamera()
{
    const char* reply = nullptr;
    const int result = vqd_client_request(m_client, R"({"do":"state"})", kStepMs, &reply, &m_error);
    m_unreached = vqd_client_descriptor(m_client) < 0 ? m_unreached + 1 : 0;
    if (m_unreached < kUnreachedIsGone && (result == VQD_CLIENT_TIMEOUT || result == VQD_CLIENT_LOST))
        return true;
    const char* const state = result == VQD_CLIENT_OK ? vqdc_json_member(reply, "state").text : nullptr;
    return state != nullptr ? mayDeliver(state) : failLost();
}

bool WorkerCamera::send(const std::string& settings)
{
    const int result = vqd_client_set(m_client, settings.c_str(), kSettingsMs, nullptr, &m_error);
    if (result == VQD_CLIENT_REFUSED || result == VQD_CLIENT_TIMEOUT)
        return fail(Trouble::kSettings, std::string("The settings were not taken: ") + m_error.text);
    m_settingsSent = result == VQD_CLIENT_OK;
    return m_settingsSent || failLost();
}

void WorkerCamera::measure(const vqd_client_frame& frame)
{
    if (m_session != frame.session) {
        m_session = frame.session;
        m_firstSequence = frame.sequence;
        m_firstTime = frame.monotonic_time_ns;
        return;
    }
    const int64_t passed = frame.monotonic_time_ns - m_firstTime;
    m_rate =
        static_cast<double>(frame.sequence - m_firstSequence) * 1e9 / static_cast<double>(std::max<int64_t>(passed, 1));
    m_ready = passed >= kMeasureNs;
}

Step WorkerCamera::next(vqd_client_frame& frame)
{
    switch (vqd_client_next(m_client, kStepMs, &frame, &m_error)) {
    case VQD_CLIENT_OK:
        return Step::done;
    case VQD_CLIENT_TIMEOUT:
        return Step::later;
    default:
        failLost();
        return Step::failed;
    }
}

Step WorkerCamera::prepare(const std::string& settings)
{
    vqd_client_frame frame;
    const Step came = next(frame);
    if (came == Step::failed)
        return came;
    if (came == Step::later) {
        if (++m_emptySteps % kStepsUntilAsking != 0)
            return Step::later;
        return stillHasCamera() ? Step::later : Step::failed;
    }
    if (!settings.empty() && !m_settingsSent) // which may change the rate
        return send(settings) ? Step::later : Step::failed;
    measure(frame);
    return m_ready ? Step::done : Step::later;
}
