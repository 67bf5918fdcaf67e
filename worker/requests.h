// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What readers ask of a camera, and the answers. They wait until the camera's loop takes them, between two frames.
#pragma once

#include <functional>
#include <mutex>
#include <vector>

#include "host/assignments.h"
#include "host/json.h"
#include "worker/recording_sink.h"

struct PendingRequest {
    uint64_t client;
    uint32_t number;
    Json request;
};

class RequestQueue
{
public:
    // False, and not added, when so many wait already that the camera cannot be answering. Requests of readers that
    // have gone still count, or who connects again and again could fill the memory.
    bool add(PendingRequest request)
    {
        const std::lock_guard lock(m_mutex);
        if (m_pending.size() == kMostPending)
            return false;
        m_pending.push_back(std::move(request));
        return true;
    }
    std::vector<PendingRequest> takeAll()
    {
        const std::lock_guard lock(m_mutex);
        return std::exchange(m_pending, {});
    }

private:
    static constexpr size_t kMostPending = 64;

    std::mutex m_mutex;
    std::vector<PendingRequest> m_pending;
};

// What a request does besides its answer.
struct RequestEffect {
    Json reply;           // {"ok": true, ...}
    Json event = nullptr; // what other readers are told
    bool changed = false; // the parameters
    bool stop = false;    // the worker
};

// How requests reach the camera.
struct RequestTarget {
    const ListedCamera& camera;
    // Runs something while the camera does not grab.
    std::function<void(const std::function<void()>&)> whileStopped;
    RecordingSink* recorder; // null where nothing may be recorded
};

// Fails with a usage error for what is no request, and as the camera does.
RequestEffect answer(const Json& request, const RequestTarget& target);
