// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What waits to be written while the disk is busy. It takes a bounded amount of memory, and never makes the camera's
// loop wait: frames for which there is no room are counted instead.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <variant>

#include "host/bytes.h"
#include "host/host_time.h"
#include "recording/host_values.h"
#include "worker/sink.h"

struct QueuedFrame {
    vqd_wire_frame header{};
    Bytes raw;                                         // VQD_FRAME_BYTES
    std::vector<uint16_t> amplitude, depth;            // as the library made them; empty unless they were asked for
    std::shared_ptr<const RecordedParameters> changed; // parameters that hold from this frame on, if they are others
    uint64_t notRecorded = 0;                          // frames before this one for which there was no room
};

struct QueuedEvent {
    std::string name;
    Json json; // schema vqd.event/1
    HostTime time;
};

class RecordQueue
{
public:
    using Frame = std::unique_ptr<QueuedFrame>; // also kept for later frames, since fresh memory costs time
    using Entry = std::variant<Frame, QueuedEvent>;

    // With both images of the library, or without; `most` is in bytes.
    RecordQueue(bool images, size_t most);

    // Of the loop. Nothing is taken after the close.
    void add(const FrameView& view);
    void add(QueuedEvent event);
    void change(std::shared_ptr<const RecordedParameters> parameters); // before the next frame

    // Of the thread that writes: the oldest entry, waited for at most so long.
    std::optional<Entry> next(std::chrono::milliseconds patience);
    void takeBack(Frame frame); // when it is written

    // Nothing more comes in. What is there can still be taken, until the first moment that dropAt() was given.
    void close();
    void dropAt(std::chrono::steady_clock::time_point moment);
    bool closed() const;
    bool ended() const; // closed and empty

    uint64_t notRecorded() const; // frames for which there was no room, or which were dropped
    size_t bytes() const;         // of the frames that wait

private:
    bool m_images;
    const size_t m_frameBytes, m_most; // frames

    mutable std::mutex m_mutex; // guards what follows
    std::condition_variable m_changed;
    std::deque<Entry> m_entries;
    std::vector<Frame> m_spare;
    std::shared_ptr<const RecordedParameters> m_parameters;
    size_t m_frames = 0, m_events = 0; // in m_entries
    uint64_t m_missed = 0;             // since the latest frame that was taken
    uint64_t m_notRecorded = 0;
    bool m_closed = false;
    std::optional<std::chrono::steady_clock::time_point> m_drop;
};
