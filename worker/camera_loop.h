// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The one loop of a worker: it reads a frame, hands it to the sinks, and answers requests before the next.
#pragma once

#include <optional>

#include "host/arrivals.h"
#include "host/camera_stream.h"

#include "worker/requests.h"
#include "worker/sink.h"
#include "worker/worker_state.h"

class CameraLoop
{
public:
    struct Parts {
        std::span<Sink* const> sinks;
        WorkerState& state;
        RequestQueue& requests;
        RecordingSink* recorder; // one of the sinks, or null
        Watch& watch;            // one of the sinks
        std::function<void(const PendingRequest&, const Json& reply)> reply;
        std::function<bool()> stops;
    };

    // Of a claimed camera.
    CameraLoop(const ListedCamera& camera, Parts parts);

    // Returns when it was told to stop. Fails when the camera is lost for good.
    void run();

private:
    void start();
    void tellParameters();
    void tell(const Json& event);
    void answerRequests();
    void readFrame();
    void cameBack();
    void followToAddress();
    void requireSameCamera() const;
    void hand(std::chrono::steady_clock::time_point began);

    ListedCamera m_camera;
    const Parts m_parts;
    const Json m_lens;
    std::mutex m_sinks; // sinks are called one at a time
    std::optional<CameraStream> m_stream;
    double m_interval = 0; // between two frames, in ms, as the camera is set
    std::optional<Arrivals> m_arrivals;
    ClockWatch m_clock;
    const std::unique_ptr<DepthFrame> m_frame = std::make_unique<DepthFrame>();
    vqd_wire_frame m_header{};
    int m_reopensInARow = 0;
    bool m_stopped = false; // by a request
};
