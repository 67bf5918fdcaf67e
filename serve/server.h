// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The server: its cameras, and what it answers to which path. One thread and one poll.
#pragma once

#include "serve/http.h"
#include "serve/lookout.h"
#include "serve/token.h"

// What recordings leave free of the disk of this folder, in bytes.
uint64_t leastFree(const std::string& folder);

class Server
{
public:
    struct Options {
        std::string version;
        std::string host = "127.0.0.1"; // an address
        uint16_t port = 8760;
        std::vector<std::string> names; // by which clients may call it, besides the address and the loopback's
        Configuration configuration;
        std::string pages;                      // where the page's files are read; empty: in the program
        std::vector<std::string> workerOptions; // of every worker that it starts
        std::function<void(const std::string& sentence)> say;
    };

    // Listens from now on. Takes SIGTERM, SIGINT, SIGHUP and SIGCHLD for itself. Fails when that is not possible.
    explicit Server(Options options);
    ~Server(); // its workers end, too

    // Works until a signal asks it to stop.
    void run();

    std::string address() const; // "http://127.0.0.1:8760"
    const std::string& token() const { return m_token; }
    const std::filesystem::path& tokenFile() const { return m_tokenFile.path(); }

private:
    using Clock = std::chrono::steady_clock;

    std::optional<Answer> handle(const HttpRequest& request);
    std::optional<Answer> handleCamera(const HttpRequest& request, Camera& camera, std::string_view what);
    Camera* cameraCalled(std::string_view name);
    Json state() const;
    void takeLook(const Look& look, Clock::time_point now);
    void addCamera(const std::string& worker);
    void serveCameras(Clock::time_point now);
    void wait();

    const Options m_options;
    const std::string m_token, m_instance, m_started;
    const Descriptor m_signals;
    std::list<Camera> m_cameras; // before what answers their clients
    Http m_http;
    const TokenFile m_tokenFile;
    Lookout m_lookout;
    std::vector<FoundWorker> m_found;
    std::string m_error;
    bool m_hasLooked = false, m_stops = false;
    Clock::time_point m_next{}; // when something is due
};
