// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A frame is copied once, whatever the number of readers; packing and sending are the thread's.
#include "worker/socket_sink.h"

#include "worker/answers.h"

SocketSink::SocketSink(int listening, int link, const WorkerState& state, RequestQueue& requests,
                       RecordingSink* recorder, std::function<void()> linkEnded)
    : m_state(state), m_requests(requests), m_recorder(recorder), m_listening(listening),
      m_server(
          {.state = [this] { return stateWithClients(); },
           .request = [this](ClientId client, uint32_t number, const Json& json) { request(client, number, json); },
           .linkEnded = std::move(linkEnded),
           .packer = [this](const Body& frame) { return packed(frame); }})
{
    m_server.addLink(link);
    m_thread = std::jthread([this](const std::stop_token& stop) { run(stop); });
}

SocketSink::~SocketSink()
{
    m_thread.request_stop();
    m_server.wake();
}

static std::span<const uint8_t> bytesOf(std::span<const uint16_t> plane)
{
    return {reinterpret_cast<const uint8_t*>(plane.data()), plane.size_bytes()};
}

void SocketSink::frame(const FrameView& view)
{
    const std::shared_ptr<Bytes> body = m_pool.take();
    appendFrame(*body, view.header, {bytesOf(view.frame.amplitude), bytesOf(view.frame.depth)});
    m_server.publish(view.header.sequence, body);
    m_hasFrames = true;
}

void SocketSink::parameters(const Parameters& parameters)
{
    m_server.parameters(parameters.json);
}

void SocketSink::event(const Json& event)
{
    m_server.broadcast(event);
}

Json SocketSink::stateWithClients() const
{
    Json json = m_state.json();
    json["clients"] = m_server.clients();
    return json;
}

void SocketSink::request(ClientId client, uint32_t number, const Json& json)
{
    // These need no camera, which may not answer for a while.
    const Json what = json.contains("do") ? json["do"] : Json();
    if (what == "state")
        m_server.reply(client, number, {{"ok", true}, {"state", stateWithClients()}});
    else if (what == "stop-recording")
        m_server.reply(client, number, {{"ok", true}, {"recording", requireRecorder(m_recorder).stop()}});
    else if (!m_requests.add({client, number, json}))
        throw Failure(kFailed, "the camera does not answer, and too many requests wait for it already");
}

// Planes that would not become smaller are sent as they are.
Body SocketSink::packed(const Body& frame)
{
    static_assert(sizeof(vqd_wire_frame) % alignof(uint16_t) == 0);
    const auto* const planes = reinterpret_cast<const uint16_t*>(frame->data() + sizeof(vqd_wire_frame));
    const std::span<const uint8_t> packed =
        m_packing.pack({std::span(planes, VQD_PIXELS), std::span(planes + VQD_PIXELS, VQD_PIXELS)});
    if (packed.empty())
        return frame;
    vqd_wire_frame header = frameIn(*frame).header;
    header.flags |= VQD_WIRE_PACKED;
    header.plane_bytes = static_cast<uint32_t>(packed.size());
    const std::shared_ptr<Bytes> body = m_pool.take();
    appendFrame(*body, header, {packed});
    return body;
}

void SocketSink::run(const std::stop_token& stop)
{
    constexpr auto kStatePeriod = std::chrono::milliseconds(200);
    using Clock = std::chrono::steady_clock;
    std::vector<pollfd> waiting;
    auto next = Clock::now();
    bool accepts = false;
    while (!stop.stop_requested()) {
        if (const auto now = Clock::now(); now >= next) {
            m_server.sendState();
            next = now + kStatePeriod;
        }
        if (!accepts && m_hasFrames) {
            accepts = true;
            m_server.acceptFrom(m_listening);
            m_server.sendState();
        }
        m_server.flush();
        waiting.clear();
        m_server.addTo(waiting);
        poll(waiting.data(), waiting.size(), static_cast<int>(kStatePeriod.count()));
        m_server.serve(waiting);
    }
    m_server.serve({});
}
