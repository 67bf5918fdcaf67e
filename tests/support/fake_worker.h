// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The other end of a client: writes what a worker, or something worse, would send, and reads what the client asks.
#pragma once

#include <cstring>
#include <functional>
#include <mutex>
#include <optional>
#include <poll.h>
#include <string>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "worker/wire.h"

namespace fake
{

inline std::string message(unsigned kind, const std::string& body, uint32_t request = 0)
{
    vqd_wire_prefix prefix{
        {'V', 'Q', 'D', 'W'}, 1, static_cast<uint16_t>(kind), static_cast<uint32_t>(body.size()), request};
    return std::string(reinterpret_cast<const char*>(&prefix), sizeof prefix) + body;
}

inline std::string state(const std::string& more = "")
{
    return message(VQD_WIRE_STATE, R"({"schema":"vqd.worker/1","serial":"24061100000001")" + more + "}");
}

// A small frame: each pixel of the amplitude is its number, of the depth its number and the sequence number.
struct Frame {
    uint64_t session = 1, sequence = 1;
    int64_t time = 1000;
    uint32_t flags = 0;
    uint16_t width = 32, height = 3;

    std::string body() const
    {
        vqd_wire_frame header{};
        strcpy(header.serial, "24061100000001");
        header.session = session;
        header.sequence = sequence;
        header.real_time_ns = time + 7;
        header.monotonic_time_ns = time;
        header.stamp_ms = 40;
        header.count = sequence + 100;
        header.temperature = 36.5;
        header.flags = flags;
        header.dropped = 2;
        header.width = width;
        header.height = height;
        const uint32_t pixels = uint32_t{width} * height;
        header.plane_bytes = 4 * pixels;
        std::vector<uint16_t> planes;
        for (uint32_t i = 0; i < 2 * pixels; ++i)
            planes.push_back(static_cast<uint16_t>(i % pixels + (i < pixels ? 0 : sequence)));
        return std::string(reinterpret_cast<const char*>(&header), sizeof header) +
               std::string(reinterpret_cast<const char*>(planes.data()), 2 * planes.size());
    }
    std::string answer(uint32_t pull) const { return message(VQD_WIRE_FRAME, body(), pull); }
};

inline void put(int socket, const std::string& bytes)
{
    for (size_t sent = 0; sent < bytes.size();) {
        const ssize_t now = send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (now <= 0)
            return; // the client has gone
        sent += static_cast<size_t>(now);
    }
}

struct Asked {
    vqd_wire_prefix prefix;
    std::string body;
    uint64_t after() const
    {
        vqd_wire_pull pull{};
        memcpy(&pull, body.data(), std::min(body.size(), sizeof pull));
        return pull.after;
    }
};

// The client's next message; nothing when it has ended the connection.
inline std::optional<Asked> take(int socket)
{
    Asked asked;
    if (recv(socket, &asked.prefix, sizeof asked.prefix, MSG_WAITALL) != sizeof asked.prefix)
        return {};
    asked.body.resize(asked.prefix.size);
    if (asked.prefix.size > 0 &&
        recv(socket, asked.body.data(), asked.body.size(), MSG_WAITALL) != static_cast<ssize_t>(asked.body.size()))
        return {};
    return asked;
}

// Listens at a path and serves one connection after the other, each with the next of its services.
class Worker
{
public:
    using Service = std::function<void(int socket)>;

    Worker(const std::string& path, std::vector<Service> services)
        : m_listening(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)), m_end(eventfd(0, EFD_CLOEXEC))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        if (bind(m_listening, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            listen(m_listening, 8) != 0)
            abort();
        m_thread = std::thread([this, services = std::move(services)] { run(services); });
    }
    ~Worker()
    {
        eventfd_write(m_end, 1);
        {
            const std::lock_guard lock(m_mutex);
            m_ending = true;
            if (m_connection >= 0)
                shutdown(m_connection, SHUT_RDWR);
        }
        m_thread.join();
        close(m_listening);
        close(m_end);
    }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

private:
    void run(const std::vector<Service>& services)
    {
        for (const Service& service : services) {
            pollfd both[] = {{m_listening, POLLIN, 0}, {m_end, POLLIN, 0}};
            if (poll(both, 2, -1) < 0 || both[1].revents != 0)
                return;
            const int connection = accept4(m_listening, nullptr, nullptr, SOCK_CLOEXEC);
            set(connection);
            service(connection);
            set(-1);
            close(connection);
        }
    }
    void set(int connection)
    {
        const std::lock_guard lock(m_mutex);
        m_connection = connection;
        if (m_ending && connection >= 0)
            shutdown(connection, SHUT_RDWR);
    }

    const int m_listening, m_end;
    std::mutex m_mutex;
    int m_connection = -1; // that is being served
    bool m_ending = false;
    std::thread m_thread;
};

} // namespace fake
