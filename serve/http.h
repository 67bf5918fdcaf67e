// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The HTTP server: it judges requests, hands those that may pass to one function, and sends answers when they are
// there. One thread, and memory that no client can make grow.
#pragma once

#include <chrono>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <poll.h>

#include "serve/access.h"
#include "serve/answer.h"

struct MHD_Connection;
struct MHD_Daemon;

// A request that may pass.
struct HttpRequest {
    uint64_t id;
    std::string method, path, body;
    std::map<std::string, std::string> query;
    bool takesZstd; // as a content encoding
};

class Http
{
public:
    // Answers at once, or later with answer().
    using Handler = std::function<std::optional<Answer>(const HttpRequest& request)>;

    // Listens at this IPv4 or IPv6 address. Port 0 means any. Fails when that is not possible.
    Http(const std::string& address, uint16_t port, AccessRules rules, Handler handler);
    ~Http();
    Http(const Http&) = delete;
    Http& operator=(const Http&) = delete;

    uint16_t port() const { return m_port; }
    size_t connections() const { return m_connections.size(); }

    // A request that waits no more, because its client has gone, is passed over.
    void answer(uint64_t id, Answer answer);

    // What to wait for and how long at most, and the work when the waiting has ended.
    pollfd waiting() const;
    std::chrono::milliseconds mostWait() const;
    void serve();

private:
    using Clock = std::chrono::steady_clock;
    struct Connection {
        int descriptor;
        Clock::time_point began;
        bool isTrusted = false;      // it has sent a request that may pass
        const void* frame = nullptr; // that is on its way, which others may share
        Clock::time_point sendsSince{};
    };
    struct Exchange;
    struct Callbacks; // for the C library

    void limitConnections();
    void limitFrames();
    bool begin(Exchange& exchange, const char* method, const char* path);
    bool proceed(Exchange& exchange);
    bool send(Exchange& exchange, Answer answer);

    const AccessRules m_rules;
    const Handler m_handler;
    std::list<Connection> m_connections; // the oldest first
    std::map<uint64_t, Exchange> m_exchanges;
    uint64_t m_lastId = 0;
    bool m_ends = false;
    MHD_Daemon* m_daemon = nullptr;
    uint16_t m_port = 0;
};
