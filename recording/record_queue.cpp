// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Frames are copied outside the lock, so the thread that writes never holds up the loop for longer than a few
// instructions.
#include "recording/record_queue.h"

#include <algorithm>

namespace
{

constexpr size_t kPlaneBytes = VQD_PIXELS * sizeof(uint16_t);
constexpr size_t kMostEvents = 1000; // far more than a camera has while a disk is busy

} // namespace

RecordQueue::RecordQueue(bool images, size_t most)
    : m_images(images), m_frameBytes(VQD_FRAME_BYTES + (images ? 2 * kPlaneBytes : 0)),
      m_most(std::max<size_t>(most / m_frameBytes, 1))
{
}

void RecordQueue::add(const FrameView& view)
{
    Frame frame;
    {
        const std::lock_guard lock(m_mutex);
        if (m_closed)
            return;
        if (m_frames == m_most) {
            ++m_missed;
            ++m_notRecorded;
            return;
        }
        if (!m_spare.empty()) {
            frame = std::move(m_spare.back());
            m_spare.pop_back();
        }
    }
    if (!frame)
        frame = std::make_unique<QueuedFrame>();
    frame->header = view.header;
    frame->raw.assign(view.raw.begin(), view.raw.end());
    if (m_images) {
        frame->amplitude.assign(view.frame.amplitude.begin(), view.frame.amplitude.end());
        frame->depth.assign(view.frame.depth.begin(), view.frame.depth.end());
    }
    const std::lock_guard lock(m_mutex);
    if (m_closed)
        return;
    frame->changed = std::exchange(m_parameters, nullptr);
    frame->notRecorded = std::exchange(m_missed, 0);
    m_entries.emplace_back(std::move(frame));
    ++m_frames;
    m_changed.notify_one();
}

void RecordQueue::add(QueuedEvent event)
{
    const std::lock_guard lock(m_mutex);
    if (m_closed || m_events == kMostEvents)
        return;
    m_entries.emplace_back(std::move(event));
    ++m_events;
    m_changed.notify_one();
}

void RecordQueue::change(std::shared_ptr<const RecordedParameters> parameters)
{
    const std::lock_guard lock(m_mutex);
    m_parameters = std::move(parameters);
}

std::optional<RecordQueue::Entry> RecordQueue::next(std::chrono::milliseconds patience)
{
    std::unique_lock lock(m_mutex);
    m_changed.wait_for(lock, patience, [this] { return !m_entries.empty() || m_closed; });
    if (m_drop && std::chrono::steady_clock::now() >= *m_drop) {
        m_notRecorded += std::exchange(m_frames, 0);
        m_events = 0;
        m_entries.clear();
    }
    if (m_entries.empty())
        return std::nullopt;
    Entry entry = std::move(m_entries.front());
    m_entries.pop_front();
    --(std::holds_alternative<Frame>(entry) ? m_frames : m_events);
    return entry;
}

void RecordQueue::takeBack(Frame frame)
{
    const std::lock_guard lock(m_mutex);
    m_spare.push_back(std::move(frame));
}

void RecordQueue::close()
{
    const std::lock_guard lock(m_mutex);
    m_closed = true;
    m_changed.notify_one();
}

void RecordQueue::dropAt(std::chrono::steady_clock::time_point moment)
{
    const std::lock_guard lock(m_mutex);
    m_drop = std::min(moment, m_drop.value_or(moment));
}

bool RecordQueue::closed() const
{
    const std::lock_guard lock(m_mutex);
    return m_closed;
}

bool RecordQueue::ended() const
{
    const std::lock_guard lock(m_mutex);
    return m_closed && m_entries.empty();
}

uint64_t RecordQueue::notRecorded() const
{
    const std::lock_guard lock(m_mutex);
    return m_notRecorded;
}

size_t RecordQueue::bytes() const
{
    const std::lock_guard lock(m_mutex);
    return m_frames * m_frameBytes;
}
