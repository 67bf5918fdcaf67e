// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Reads and writes never block. A reader that leaves too much unread, or sends what is no message, is let go.
#include "worker/client_server.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/eventfd.h>
#include <sys/uio.h>
#include <unistd.h>

#include "host/documents.h"
#include "host/usb_devices.h"
#include "worker/answers.h"
#include "worker/packing.h"

namespace
{

constexpr size_t kMostReaders = 64;
constexpr int kMostUnanswered = 16; // requests of one reader; it is not listened to while so many wait

std::string textOf(const Json& json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

} // namespace

ClientServer::ClientServer(Hooks hooks)
    : m_hooks(std::move(hooks)), m_wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), m_latest(m_hooks.packer)
{
    if (m_wake < 0)
        throw Failure(kFailed, std::string("eventfd: ") + strerror(errno));
}

ClientServer::~ClientServer()
{
    for (const Client& client : m_clients)
        close(client.descriptor);
    close(m_wake);
}

void ClientServer::publish(uint64_t sequence, Body frame)
{
    {
        const std::lock_guard lock(m_mutex);
        m_inbox.frame = {sequence, std::move(frame)};
    }
    wake();
}

void ClientServer::parameters(const Json& json)
{
    {
        const std::lock_guard lock(m_mutex);
        m_inbox.parameters = messageOf(VQD_WIRE_PARAMETERS, textOf(json));
        m_inbox.forAll.push_back(*m_inbox.parameters);
    }
    wake();
}

void ClientServer::broadcast(const Json& event)
{
    {
        const std::lock_guard lock(m_mutex);
        m_inbox.forAll.push_back(messageOf(VQD_WIRE_EVENT, textOf(event)));
    }
    wake();
}

void ClientServer::reply(ClientId client, uint32_t number, const Json& reply)
{
    {
        const std::lock_guard lock(m_mutex);
        m_inbox.replies.emplace_back(client, messageOf(VQD_WIRE_REPLY, textOf(reply), number));
    }
    wake();
}

void ClientServer::wake()
{
    const uint64_t once = 1;
    (void)!write(m_wake, &once, sizeof once);
}

void ClientServer::addLink(int descriptor)
{
    add(descriptor, true, {});
}

void ClientServer::sendState()
{
    for (Client& client : m_clients)
        if (client.isLink)
            post(client, messageOf(VQD_WIRE_STATE, textOf(m_hooks.state())));
}

void ClientServer::dropReaders()
{
    for (Client& client : m_clients)
        client.dead = client.dead || !client.isLink;
    removeDead();
}

void ClientServer::addTo(std::vector<pollfd>& waiting)
{
    waiting.push_back({m_wake, POLLIN, 0});
    if (m_listening >= 0)
        waiting.push_back({m_listening, POLLIN, 0});
    for (const Client& client : m_clients) {
        const bool listens = !client.ends && client.unanswered < kMostUnanswered;
        const int wanted = (listens ? POLLIN : 0) | (client.sending ? POLLOUT : 0);
        waiting.push_back({client.descriptor, static_cast<short>(wanted), 0});
    }
}

void ClientServer::serve(std::span<const pollfd> ended)
{
    for (const pollfd& one : ended) {
        if (one.revents == 0)
            continue;
        if (one.fd == m_wake) {
            uint64_t count = 0;
            (void)!read(m_wake, &count, sizeof count);
        }
        if (one.fd == m_listening)
            accept();
        const auto client = std::ranges::find(m_clients, one.fd, &Client::descriptor);
        if (client == m_clients.end())
            continue;
        if ((one.revents & POLLIN) != 0)
            receive(*client);
        else if ((one.revents & (POLLHUP | POLLERR)) != 0)
            client->dead = true;
    }
    takeInbox();
    flush();
}

void ClientServer::flush()
{
    for (Client& client : m_clients)
        send(client);
    removeDead();
}

Json ClientServer::clients() const
{
    Json json = Json::array();
    for (const Client& client : m_clients)
        if (!client.isLink)
            json.push_back({{"process", client.peer.pid},
                            {"user", client.peer.uid},
                            {"program", firstLine("/proc/" + std::to_string(client.peer.pid) + "/comm")}});
    return json;
}

void ClientServer::accept()
{
    const int descriptor = accept4(m_listening, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (descriptor < 0)
        return;
    ucred peer{};
    socklen_t length = sizeof peer;
    getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &length);
    Client& client = add(descriptor, false, peer);
    if (m_clients.size() > kMostReaders)
        refuse(client, 0, Failure(kFailed, std::to_string(kMostReaders) + " programs read from this worker already"));
}

ClientServer::Client& ClientServer::add(int descriptor, bool isLink, const ucred& peer)
{
    Client& client = m_clients.emplace_back();
    client.id = ++m_lastId;
    client.descriptor = descriptor;
    client.isLink = isLink;
    client.peer = peer;              // before the state, which names all readers
    constexpr int kAFrame = 1 << 19; // as much of it as the system allows, so that sending one takes fewer steps
    setsockopt(descriptor, SOL_SOCKET, SO_SNDBUF, &kAFrame, sizeof kAFrame);
    post(client, messageOf(VQD_WIRE_STATE, textOf(m_hooks.state())));
    if (m_parameters)
        post(client, *m_parameters);
    return client;
}

void ClientServer::takeInbox()
{
    Inbox inbox;
    {
        const std::lock_guard lock(m_mutex);
        std::swap(inbox, m_inbox);
    }
    if (inbox.parameters)
        m_parameters = std::move(inbox.parameters);
    if (inbox.frame)
        m_latest.set(inbox.frame->first, std::move(inbox.frame->second));
    for (const Message& message : inbox.forAll)
        for (Client& client : m_clients)
            post(client, message);
    for (auto& [id, message] : inbox.replies) {
        const auto client = std::ranges::find(m_clients, id, &Client::id);
        if (client == m_clients.end())
            continue;
        --client->unanswered;
        post(*client, std::move(message));
        handleReceived(*client);
    }
}

void ClientServer::receive(Client& client)
{
    const std::span<uint8_t> space = client.reader.space();
    const ssize_t came = recv(client.descriptor, space.data(), space.size(), MSG_DONTWAIT);
    if (came == 0 || (came < 0 && errno != EAGAIN && errno != EINTR)) {
        client.dead = true;
        return;
    }
    client.reader.came(static_cast<size_t>(std::max<ssize_t>(came, 0)));
    handleReceived(client);
}

void ClientServer::handleReceived(Client& client)
{
    try {
        while (client.unanswered < kMostUnanswered) {
            const std::optional<Received> message = client.reader.next();
            if (!message)
                return;
            handle(client, *message);
        }
    } catch (const Failure& noMessage) {
        refuse(client, 0, noMessage);
    }
}

void ClientServer::handle(Client& client, const Received& message)
{
    const uint32_t number = message.prefix.request;
    switch (message.prefix.kind) {
    case VQD_WIRE_PULL:
        pull(client, number, pullIn(message.body));
        return;
    case VQD_WIRE_REQUEST:
        ++client.unanswered;
        try {
            m_hooks.request(client.id, number, parsedObject(message.text(), "the request"));
        } catch (const std::exception& why) {
            reply(client.id, number, refusal(why));
        }
        return;
    default:
        throw Failure(kUsage, "a worker takes no message of kind " + std::to_string(message.prefix.kind));
    }
}

void ClientServer::pull(Client& client, uint32_t number, const vqd_wire_pull& pull)
{
    const char* const missing = Packing::missing();
    if ((pull.flags & VQD_WIRE_PACKED) == 0 || missing == nullptr)
        client.outbox.pull(number, pull);
    else
        post(client, messageOf(VQD_WIRE_REPLY, textOf(refusal(Failure(kUsage, missing))), number));
}

// Nothing after bytes that are no message can be understood, so this is the last that the reader gets.
void ClientServer::refuse(Client& client, uint32_t number, const std::exception& why)
{
    post(client, messageOf(VQD_WIRE_REPLY, textOf(refusal(why)), number));
    client.ends = true;
}

void ClientServer::post(Client& client, Message message)
{
    if (!client.ends && !client.outbox.add(std::move(message)))
        client.dead = !client.isLink;
}

void ClientServer::send(Client& client)
{
    while (!client.dead) {
        if (!client.sending) {
            client.sending = client.outbox.next(m_latest);
            client.sent = 0;
        }
        if (!client.sending) {
            client.dead = client.ends;
            return;
        }
        if (!sendSome(client))
            return;
    }
}

// False when the rest has to wait.
bool ClientServer::sendSome(Client& client)
{
    Message& message = *client.sending;
    constexpr size_t kPrefix = sizeof(vqd_wire_prefix);
    const size_t ofPrefix = std::min(client.sent, kPrefix), ofBody = client.sent - ofPrefix;
    iovec parts[2] = {{reinterpret_cast<uint8_t*>(&message.prefix) + ofPrefix, kPrefix - ofPrefix},
                      {const_cast<uint8_t*>(message.body->data()) + ofBody, message.body->size() - ofBody}};
    msghdr header{};
    header.msg_iov = parts;
    header.msg_iovlen = 2;
    const ssize_t sent = sendmsg(client.descriptor, &header, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0) {
        client.dead = errno != EAGAIN && errno != EINTR;
        return false;
    }
    client.sent += static_cast<size_t>(sent);
    if (client.sent == kPrefix + message.body->size())
        client.sending.reset();
    return true;
}

void ClientServer::removeDead()
{
    bool linkEnded = false;
    std::erase_if(m_clients, [&](const Client& client) {
        if (client.dead) {
            close(client.descriptor);
            linkEnded = linkEnded || client.isLink;
        }
        return client.dead;
    });
    if (linkEnded && m_hooks.linkEnded)
        m_hooks.linkEnded();
}
