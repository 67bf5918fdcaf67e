// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Workers that a command starts for itself.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

class WorkerProcesses
{
public:
    WorkerProcesses() = default;
    ~WorkerProcesses(); // ends them, within some seconds
    WorkerProcesses(const WorkerProcesses&) = delete;
    WorkerProcesses& operator=(const WorkerProcesses&) = delete;

    // Starts a worker for the camera of this port or serial number. It also ends when this process does, whichever way.
    void start(const std::string& camera, const std::vector<std::string>& settings,
               const std::vector<std::string>& options); // more words of vqd worker

    // False when one has ended by itself; it has said why.
    bool allRun() const;

    // Fails when one has.
    void requireRunning() const;

private:
    std::vector<pid_t> m_processes;
};
