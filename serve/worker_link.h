// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A connection to a worker: messages to it and from it, without ever waiting.
#pragma once

#include <functional>
#include <poll.h>

#include "host/json.h"
#include "worker/local_socket.h"
#include "worker/messages.h"

class WorkerLink
{
public:
    explicit WorkerLink(Descriptor connection) : m_connection(std::move(connection)) {}

    // Fail when the worker is gone, or does not take what is sent to it.
    void request(uint32_t number, const Json& request);
    void pull(uint64_t after);

    pollfd waiting() const;

    // Sends and receives what it can. Fails when the connection has ended, or brings what is no message.
    void serve(const std::function<void(const Received& message)>& heard);

private:
    void send(const Message& message);
    void flush();

    Descriptor m_connection;
    MessageReader m_reader{VQD_WIRE_MOST_MESSAGE};
    Bytes m_unsent;
};
