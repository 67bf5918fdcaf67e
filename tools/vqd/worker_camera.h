// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A camera by way of its worker.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "host/depth_frame.h"
#include "host/failure.h"
#include "host/json.h"
#include "worker/client/vqd_client.h"

// How long a camera may be silent before a command stops waiting for it.
inline constexpr std::chrono::seconds kMostSilence(10);

struct CloseClient {
    void operator()(vqd_client* client) const { vqd_client_close(client); }
};
using Client = std::unique_ptr<vqd_client, CloseClient>;

// For one thread at a time.
class WorkerCamera
{
public:
    WorkerCamera(std::string port, Client client) : m_port(std::move(port)), m_client(std::move(client)) {}

    // The next frame, if it comes within so many ms; valid until the next call. Says when the camera is lost, and when
    // it is back. Fails when its worker does not speak this program's language.
    std::optional<vqd_client_frame> next(int timeoutMs);

    // Fails when no frame has come for kMostSilence.
    void requireFrames();

    // What the worker has to say about having no frames; nothing when it does not know.
    std::string trouble();

    // These settings; fails when they cannot be had.
    Json settings(const char* names);

    // The reply to a request. Fails with the worker's own sentence and code, or as lost when none comes in time.
    Json ask(const Json& request, int timeoutMs);

    const std::string& name() const { return m_name.empty() ? m_port : m_name; } // of files
    void setName(const std::string& name) { m_name = name; }
    std::string title() const { return "camera " + name(); } // for people
    Failure named(const Failure& failure) const { return {failure.code, title() + ": " + failure.what()}; }
    const std::string& port() const { return m_port; }
    const Json& identity() const { return m_identity; } // as vqd list shows it; null before the first frame
    std::chrono::duration<double> silence() const { return Clock::now() - m_last; }
    int descriptor() const { return vqd_client_descriptor(m_client.get()); }

private:
    using Clock = std::chrono::steady_clock;

    void hasCome();
    void isLost();

    std::string m_port;
    Client m_client;
    std::string m_name;
    Json m_identity;
    Clock::time_point m_last = Clock::now(); // when a frame came, or the wait for the first one began
    bool m_lost = false;
};

// Fails unless the frame has the size of the library's.
void copyFrame(const vqd_client_frame& from, DepthFrame& into);
