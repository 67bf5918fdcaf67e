// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Every attached camera at once, each held by a worker, so that none waits for another.
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

// Workers that run already are used. For the other cameras, workers are started, which end with the object.
class AllCameras
{
public:
    // Waits for a frame of each. Cameras that do not deliver one are left out, with a warning; fails when those are
    // all. `settings` are for this command only, so they are refused for a camera with a worker of its own.
    explicit AllCameras(const std::vector<std::string>& settings);

    // In the order of their names.
    std::vector<WorkerCamera>& all() { return m_cameras; }

    // Waits until one of them may have something, at most so many ms.
    void wait(int timeoutMs) const;

    // Fails when a camera was left out, or sends no frames any more.
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
