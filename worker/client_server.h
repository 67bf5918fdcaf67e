// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The readers of a worker's socket: accepted, listened to and served from one thread, which never waits for any of
// them. What they get comes from any thread.
#pragma once

#include <functional>
#include <list>
#include <mutex>
#include <poll.h>
#include <sys/socket.h>

#include "host/json.h"
#include "worker/outbox.h"

using ClientId = uint64_t;

class ClientServer
{
public:
    struct Hooks {
        std::function<Json()> state; // for the first message to each reader
        // A request that is to be answered by reply(), at once or later. What it throws is the answer.
        std::function<void(ClientId client, uint32_t number, const Json& request)> request;
        std::function<void()> linkEnded; // the other end of the link is gone
        LatestFrame::Packer packer;      // may be null where there are no frames
    };

    explicit ClientServer(Hooks hooks);
    ~ClientServer();
    ClientServer(const ClientServer&) = delete;
    ClientServer& operator=(const ClientServer&) = delete;

    // Of any thread. The latest parameters are also for those who come later.
    void publish(uint64_t sequence, Body frame);
    void parameters(const Json& json);
    void broadcast(const Json& event);
    void reply(ClientId client, uint32_t number, const Json& reply);
    void wake();

    // Of the serving thread: accepts from a listening socket (-1: from none), which stays the caller's; takes a
    // connection that is there already, and that nobody may take away for being slow.
    void acceptFrom(int listening) { m_listening = listening; }
    void addLink(int descriptor);
    void sendState(); // over the link
    void dropReaders();

    // Of the serving thread: what to wait for, and what to do when the waiting has ended.
    void addTo(std::vector<pollfd>& waiting);
    void serve(std::span<const pollfd> ended);

    // Sends what still waits, as far as it goes without waiting.
    void flush();

    Json clients() const; // who is connected; of the serving thread or a hook

private:
    struct Client {
        ClientId id;
        int descriptor;
        bool isLink;
        ucred peer{};
        MessageReader reader{VQD_WIRE_MOST_REQUEST};
        Outbox outbox;
        std::optional<Message> sending;
        size_t sent = 0;    // of `sending`, with its prefix
        int unanswered = 0; // requests
        bool ends = false;  // when all is sent
        bool dead = false;
    };
    // What other threads have left for the serving thread.
    struct Inbox {
        std::vector<Message> forAll;
        std::vector<std::pair<ClientId, Message>> replies;
        std::optional<Message> parameters;
        std::optional<std::pair<uint64_t, Body>> frame;
    };

    void accept();
    Client& add(int descriptor, bool isLink, const ucred& peer);
    void takeInbox();
    void receive(Client& client);
    void handleReceived(Client& client);
    void handle(Client& client, const Received& message);
    void pull(Client& client, uint32_t number, const vqd_wire_pull& pull);
    void refuse(Client& client, uint32_t number, const std::exception& why);
    static void post(Client& client, Message message);
    void send(Client& client);
    bool sendSome(Client& client);
    void removeDead();

    const Hooks m_hooks;
    const int m_wake;
    int m_listening = -1;
    ClientId m_lastId = 0;
    std::list<Client> m_clients;
    std::optional<Message> m_parameters;
    LatestFrame m_latest;

    std::mutex m_mutex; // guards the inbox
    Inbox m_inbox;
};
