// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "serve/worker_link.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>

#include "host/failure.h"

namespace
{

[[noreturn]] void failAsGone(int error)
{
    throw Failure(kFailed,
                  std::string("the worker is gone: ") + (error != 0 ? strerror(error) : "end of its messages"));
}

bool mayPass(int error)
{
    return error == EAGAIN || error == EINTR;
}

} // namespace

void WorkerLink::request(uint32_t number, const Json& request)
{
    send(messageOf(VQD_WIRE_REQUEST, request.dump(-1, ' ', false, Json::error_handler_t::replace), number));
}

void WorkerLink::pull(uint64_t after)
{
    const vqd_wire_pull pull{after, 0, 0};
    const auto* const bytes = reinterpret_cast<const char*>(&pull);
    send(messageOf(VQD_WIRE_PULL, std::string_view(bytes, sizeof pull)));
}

pollfd WorkerLink::waiting() const
{
    return {m_connection, static_cast<short>(POLLIN | (m_unsent.empty() ? 0 : POLLOUT)), 0};
}

void WorkerLink::serve(const std::function<void(const Received& message)>& heard)
{
    constexpr int kMostParts = 64; // so that nobody keeps the others from being served
    flush();
    for (int i = 0; i < kMostParts; ++i) {
        const std::span<uint8_t> space = m_reader.space();
        const ssize_t came = recv(m_connection, space.data(), space.size(), MSG_DONTWAIT);
        if (came < 0 && mayPass(errno))
            return;
        if (came <= 0)
            failAsGone(came < 0 ? errno : 0);
        m_reader.came(static_cast<size_t>(came));
        while (const std::optional<Received> message = m_reader.next())
            heard(*message);
    }
}

void WorkerLink::send(const Message& message)
{
    constexpr size_t kMostUnsent = 256 << 10; // a worker that listens leaves far less
    const auto* const prefix = reinterpret_cast<const uint8_t*>(&message.prefix);
    m_unsent.insert(m_unsent.end(), prefix, prefix + sizeof message.prefix);
    m_unsent.insert(m_unsent.end(), message.body->begin(), message.body->end());
    if (m_unsent.size() > kMostUnsent)
        throw Failure(kFailed, "the worker does not listen");
    flush();
}

void WorkerLink::flush()
{
    if (m_unsent.empty())
        return;
    const ssize_t sent = ::send(m_connection, m_unsent.data(), m_unsent.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0 && !mayPass(errno))
        failAsGone(errno);
    m_unsent.erase(m_unsent.begin(), m_unsent.begin() + std::max<ssize_t>(sent, 0));
}
