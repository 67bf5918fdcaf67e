// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Frames, events and settings through the client of workers.
#include "worker_camera.h"

#include <algorithm>

#include "messages.h"

namespace
{

Json parsed(const char* text)
{
    return text != nullptr ? Json::parse(text, nullptr, false) : Json();
}

// A member of what may be anything.
Json memberOf(const Json& json, const char* name)
{
    return json.is_object() ? json.value(name, Json()) : Json();
}

} // namespace

std::optional<vqd_client_frame> WorkerCamera::next(int timeoutMs)
{
    vqd_client_frame frame;
    vqd_client_error error;
    const int result = vqd_client_next(m_client.get(), timeoutMs, &frame, &error);
    while (const char* event = vqd_client_event(m_client.get(), nullptr))
        if (memberOf(parsed(event), "event") == "lost")
            isLost();
    switch (result) {
    case VQD_CLIENT_OK:
        hasCome();
        return frame;
    case VQD_CLIENT_LOST:
        isLost();
        return {};
    case VQD_CLIENT_TIMEOUT:
        return {};
    default:
        throw Failure(kFailed, error.text);
    }
}

void WorkerCamera::hasCome()
{
    const auto now = Clock::now();
    if (m_lost)
        note("%s is back after %.1f s", title().c_str(), std::chrono::duration<double>(now - m_last).count());
    m_lost = false;
    m_last = now;
    if (m_identity.is_null())
        m_identity = memberOf(parsed(vqd_client_parameters(m_client.get())), "camera");
}

void WorkerCamera::isLost()
{
    if (!m_lost && !m_identity.is_null())
        note("%s is lost, searching", title().c_str());
    m_lost = true;
}

void WorkerCamera::requireFrames()
{
    if (silence() <= kMostSilence)
        return;
    const std::string why = trouble();
    throw Failure(kCameraLost, "no frames come" + (why.empty() ? "" : ": " + why));
}

std::string WorkerCamera::trouble()
{
    constexpr int kSoon = 200;
    const char* reply = nullptr;
    vqd_client_error error;
    if (vqd_client_request(m_client.get(), R"({"do":"state"})", kSoon, &reply, &error) != VQD_CLIENT_OK)
        return "";
    const Json why = memberOf(memberOf(parsed(reply), "state"), "error");
    return why.is_string() ? why.get<std::string>() : "";
}

Json WorkerCamera::settings(const char* names)
{
    constexpr int kPatience = 5000;
    const char* reply = nullptr;
    vqd_client_error error;
    if (vqd_client_get(m_client.get(), names, kPatience, &reply, &error) != VQD_CLIENT_OK)
        throw Failure(error.result == VQD_CLIENT_REFUSED ? kFailed : kCameraLost, error.text);
    return memberOf(parsed(reply), "settings");
}

Json WorkerCamera::ask(const Json& request, int timeoutMs)
{
    const char* reply = nullptr;
    vqd_client_error error;
    const int result = vqd_client_request(m_client.get(), request.dump().c_str(), timeoutMs, &reply, &error);
    if (result == VQD_CLIENT_REFUSED)
        throw Failure(static_cast<ExitCode>(error.code), error.text);
    if (result != VQD_CLIENT_OK)
        throw Failure(kCameraLost, error.text);
    return parsed(reply);
}

void copyFrame(const vqd_client_frame& from, DepthFrame& into)
{
    if (from.width != VQD_WIDTH || from.height != VQD_HEIGHT)
        throw Failure(kFailed, "the worker sends frames of another size");
    std::copy_n(from.amplitude, VQD_PIXELS, into.amplitude.data());
    std::copy_n(from.depth, VQD_PIXELS, into.depth.data());
    into.info = {from.width, from.height, from.count, from.stamp_ms};
}
