// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Recordings of cameras, made by their workers.
#pragma once

#include <functional>
#include <optional>

#include "all_cameras.h"

struct RecordOptions {
    std::string port;         // of the only camera; empty for all of them
    std::string folder = "."; // for workers that are started here; the others have their own
    std::string name;         // of the file; empty for SERIAL-TIME
    std::string keepFree;     // as a size; empty for the usual one
    std::vector<std::string> settings;
    Json request = Json::object(); // members of the request, as docs/worker.md has them, without name and limits
    uint64_t frames = 0;           // after which it ends, for each camera; 0 for no such limit
    double seconds = 0;            // the same
};

// What the recordings of a camera have come to.
struct Recorded {
    uint64_t frames = 0, lost = 0, notRecorded = 0, bytes = 0;
    double seconds = 0, bytesPerSecond = 0;
    std::vector<std::string> files; // that are complete

    void add(const Json& state);     // of a recording, as a worker tells it
    void add(const Recorded& other); // all but the seconds, which may be the same ones
};

// One camera that is being recorded, also across restarts of its process.
class CameraRecording
{
public:
    CameraRecording(WorkerCamera& camera, const RecordOptions& options);
    ~CameraRecording(); // stops it, if it still runs
    CameraRecording(CameraRecording&&) = delete;

    // Fails when the worker refuses it.
    void start();

    // Asks how it goes, and goes on in a new file when the worker has a new session. A worker that does not answer is
    // waited for as long as all that were started here run.
    void look(bool workersRun);

    // Ends it soon; look() tells when all is written.
    void stop();

    bool isDone() const { return m_done; }
    const WorkerCamera& camera() const { return m_camera; }
    const std::optional<Failure>& failure() const { return m_failure; } // once it is done
    Recorded all() const;

private:
    using Clock = std::chrono::steady_clock;

    void begin(const RecordOptions& limits);
    void goOn();
    void hearsNothing(const Failure& failure, bool workersRun);
    void take(const Json& recording);
    void giveUpInTime();
    void end(std::optional<Failure> failure = {});

    WorkerCamera& m_camera;
    const RecordOptions& m_options;
    const std::string m_name;
    int m_part = 1;
    uint64_t m_session = 0;
    Recorded m_before, m_now; // of sessions that have ended, of this one
    const Clock::time_point m_began = Clock::now();
    Clock::time_point m_frame = m_began, m_heard = m_began; // the latest one came, its worker has answered
    std::optional<Clock::time_point> m_stopped;
    bool m_runs = false, m_away = false, m_done = false;
    std::optional<Failure> m_failure;
};

// Records until the limits are reached or a signal comes. `progress` is told now and then how far all of them are.
// Fails when nothing can be recorded at all; what fails later is with its camera.
using CameraRecordings = std::vector<std::unique_ptr<CameraRecording>>;
void record(AllCameras& cameras, CameraRecordings& recordings,
            const std::function<void(const Recorded& all)>& progress);
CameraRecordings recordingsOf(AllCameras& cameras, const RecordOptions& options);

// How workers are started for it.
WorkerStart workersFor(const RecordOptions& options);
