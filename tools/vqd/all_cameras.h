// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Every attached camera at once, or one of them, each held by a worker, so that none waits for another.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "worker_camera.h"
#include "worker_processes.h"

// What -c says for all of them.
bool allCamerasChosen();

// The sockets of the workers that have a camera, by its port.
std::map<std::string, std::string> runningWorkers();

// How workers are started.
struct WorkerStart {
    std::vector<std::string> settings = {}; // for this command only, so they are refused for a camera with a worker
    std::string port = {};                  // of the only camera that is wanted; empty for all
    std::vector<std::string> options = {};  // more words of vqd worker
};

// Workers that run already are used. For the other cameras, workers are started, which end with the object.
class AllCameras
{
public:
    // Waits for a frame of each. Cameras that do not deliver one are left out, with a warning; fails when those are
    // all.
    explicit AllCameras(const WorkerStart& start);

    // In the order of their names.
    std::vector<WorkerCamera>& all() { return m_cameras; }

    // Waits until one of them may have something, at most so many ms.
    void wait(int timeoutMs) const;

    // False when a worker that was started here has ended by itself.
    bool workersRun() const { return m_workers.allRun(); }

    // Fails when a camera was left out.
    void requireNoneLeftOut() const;

    // The same, and when one sends no frames any more, for those who read frames.
    void requireAll();

private:
    void add(const std::string& port, const std::string& socket);
    void waitForFrame(WorkerCamera& camera) const;
    void waitForFrames();
    void name();

    WorkerProcesses m_workers; // first, so that they end last
    std::vector<WorkerCamera> m_cameras;
    std::optional<Failure> m_failure;
};
