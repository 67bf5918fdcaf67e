// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A worker from outside: it keeps the process of one camera running, answers readers while there is none, and tells its
// state. It never touches a camera itself.
#pragma once

#include <map>
#include <optional>

#include "worker/child_process.h"
#include "worker/client_server.h"
#include "worker/restart_rule.h"

class Supervisor
{
public:
    struct Options {
        ChildOptions child;
        std::filesystem::path socket; // empty for the usual place
        std::function<void(const std::string& sentence)> say;
    };

    // Makes the sockets. Fails when they cannot be made.
    explicit Supervisor(Options options);

    // Works until a signal, or a reader, asks it to stop. Takes SIGTERM, SIGINT, SIGHUP and SIGCHLD for itself.
    void run();

    const std::filesystem::path& socket() const { return m_socketPath; }

private:
    using Clock = std::chrono::steady_clock;

    Json state() const;
    void request(ClientId client, uint32_t number, const Json& request);
    void sayOnce(const std::string& sentence);
    void startChild();
    void hear(uint16_t kind, const Json& json);
    void hearState(const Json& json);
    void hearEvent(const Json& json);
    void failed(const std::string& why);
    void childEnded(int status);
    void watch();
    void answerStatus();
    void waitAndServe();

    ChildOptions m_options;
    const std::function<void(const std::string& sentence)> m_say;
    std::map<std::string, std::string> m_settings; // what the camera is to have after a restart
    const std::filesystem::path m_socketPath;
    Descriptor m_signals; // before the sockets: a signal must not leave those behind
    ListeningSocket m_socket, m_status;
    ClientServer m_server;
    RestartRule m_rule;

    std::optional<ChildProcess> m_child;
    std::string m_said, m_error;
    Json m_lastState, m_lastError;
    Clock::time_point m_lastSign, m_lastFrame;
    std::optional<Clock::time_point> m_firstFrame;
    uint64_t m_frames = 0; // of the present child
    std::optional<Place> m_held;
    int m_restarts = 0;
    bool m_streams = false, m_stops = false;
};
