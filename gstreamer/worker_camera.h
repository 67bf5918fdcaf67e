// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A camera behind a worker, in steps that are short enough for a pipeline that may be stopped at any time.
#pragma once

#include <string>
#include <vector>

#include "worker/client/vqd_client.h"

// What went wrong, in a sentence for the user.
struct Trouble {
    enum Kind { kNotFound, kBusy, kSettings, kLost } kind = kNotFound;
    std::string sentence;
};

enum class Step { done, later, failed };

class WorkerCamera
{
public:
    WorkerCamera() = default;
    ~WorkerCamera() { vqd_client_close(m_client); }
    WorkerCamera(const WorkerCamera&) = delete;
    WorkerCamera& operator=(const WorkerCamera&) = delete;

    // By the name of a worker, a serial number, the path of a socket, or empty for the only worker there is. Waits a
    // moment for a worker that is just being started.
    bool connect(const std::string& name);

    // A part of the way to the first frame: waiting for the camera, its settings (a JSON object, or empty), and its
    // rate.
    Step prepare(const std::string& settings);
    bool isReady() const { return m_ready; }
    // Frames in a second, when it is ready.
    double rate() const { return m_rate; }

    // The newest frame that was not delivered yet, whose planes stay valid until the next step.
    Step next(vqd_client_frame& frame);

    // Why the last step, or the connecting, failed.
    const Trouble& trouble() const { return m_trouble; }

private:
    std::vector<std::string> find(const std::string& wanted);
    bool stillHasCamera();
    bool send(const std::string& settings);
    void measure(const vqd_client_frame& frame);
    bool mayDeliver(const char* state);
    bool fail(Trouble::Kind kind, const std::string& sentence);
    bool failLost();

    vqd_client* m_client = nullptr;
    bool m_ready = false, m_settingsSent = false;
    int m_emptySteps = 0, m_unreached = 0;
    uint64_t m_session = 0, m_firstSequence = 0; // of the frames that are measured
    int64_t m_firstTime = 0;                     // ns
    double m_rate = 0;
    vqd_client_error m_error{};
    Trouble m_trouble;
};
