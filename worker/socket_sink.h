// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The sink that serves a worker's socket, from a thread of its own.
#pragma once

#include <atomic>
#include <functional>
#include <thread>

#include "worker/body_pool.h"
#include "worker/client_server.h"
#include "worker/packing.h"
#include "worker/recording_sink.h"
#include "worker/requests.h"
#include "worker/sink.h"
#include "worker/worker_state.h"

class SocketSink : public Sink
{
public:
    // `link` is the connection to the supervisor, and `linkEnded` is called when that is gone. Both descriptors stay
    // the caller's. Readers are accepted from the first frame on; before, the supervisor answers them. `recorder` may
    // be null.
    SocketSink(int listening, int link, const WorkerState& state, RequestQueue& requests, RecordingSink* recorder,
               std::function<void()> linkEnded);
    ~SocketSink() override; // after it has sent what still waits, as far as it can without waiting

    void frame(const FrameView& view) override;
    void parameters(const Parameters& parameters) override;
    void event(const Json& event) override;
    void reply(ClientId client, uint32_t number, const Json& reply) { m_server.reply(client, number, reply); }

private:
    Json stateWithClients() const;
    Body packed(const Body& frame);
    void request(ClientId client, uint32_t number, const Json& request);
    void run(const std::stop_token& stop);

    const WorkerState& m_state;
    RequestQueue& m_requests;
    RecordingSink* const m_recorder;
    const int m_listening;
    BodyPool m_pool;
    Packing m_packing; // of the thread
    ClientServer m_server;
    std::atomic<bool> m_hasFrames = false;
    std::jthread m_thread; // last: it uses all of the above
};
