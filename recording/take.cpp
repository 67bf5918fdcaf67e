// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "recording/take.h"

#include <pthread.h>

#include "host/documents.h"
#include "host/formatted.h"
#include "recording/layout.h"

namespace
{

using namespace std::chrono_literals;
using Seconds = std::chrono::duration<double>;

constexpr size_t kQueueBytes = 64u << 20; // seconds of frames: longer than a disk that works is ever busy
constexpr auto kLook = 200ms;
constexpr auto kEndsWithin = 1s; // a worker that is to end has two
constexpr double kNanoseconds = 1e9;

std::string megabytes(uint64_t bytes)
{
    return std::to_string(bytes / 1'000'000) + " MB";
}

bool isTaken(const std::filesystem::path& file)
{
    std::error_code unknown;
    return std::filesystem::exists(file, unknown) || std::filesystem::exists(file.string() + ".part", unknown);
}

} // namespace

Take::Take(Options options, std::shared_ptr<const RecordedParameters> parameters)
    : m_options(std::move(options)), m_images(m_options.request.images.value_or(m_options.facts.hostCorrected)),
      m_queue(m_images, kQueueBytes), m_parameters(std::move(parameters)), m_number(m_options.request.part)
{
    beginPart(at(hostTime()).log);
    try {
        requireRoom();
        m_thread = std::thread([this] { run(); });
    } catch (const std::exception&) {
        m_part->file->remove();
        throw;
    }
}

Take::~Take()
{
    end();
    m_thread.join();
}

void Take::end()
{
    if (!m_queue.closed())
        m_cut = true;
    m_queue.dropAt(Clock::now() + kEndsWithin);
    m_queue.close();
}

const char* Take::condition() const
{
    if (!m_ended)
        return m_queue.closed() ? "ending" : "recording";
    return !m_error.empty() ? "failed" : m_cut ? "cut" : "done";
}

Json Take::state() const
{
    const std::lock_guard lock(m_mutex);
    return {{"state", condition()},
            {"file", m_present.empty() ? Json() : Json(m_present)},
            {"files", m_files},
            {"part", m_number},
            {"frames", m_counts.frames},
            {"dropped", m_counts.dropped},
            {"not-recorded", m_queue.notRecorded()},
            {"seconds", m_counts.seconds},
            {"bytes", m_counts.bytes},
            {"bytes-per-second", m_counts.bytesPerSecond},
            {"error", m_error.empty() ? Json() : Json(m_error)}};
}

// The file ends as well as it can, whatever happens.
void Take::run()
{
    pthread_setname_np(pthread_self(), "vqd-recorder"); // for those who look at what it costs
    for (void (Take::*step)() : {&Take::write, &Take::endPart}) {
        try {
            (this->*step)();
        } catch (const std::exception& failure) {
            endWith(failure.what());
        }
        m_queue.close();
    }
    {
        const std::lock_guard lock(m_mutex);
        m_counts.bytesPerSecond = static_cast<double>(m_counts.bytes) / Seconds(Clock::now() - m_began).count();
    }
    m_ended = true;
    tell();
}

void Take::write()
{
    while (!m_queue.ended() && !isOver()) {
        if (m_options.ends()) // a read may keep the loop from saying so for longer than there is time
            end();
        std::optional<RecordQueue::Entry> entry = m_queue.next(kLook);
        m_emptyLooks = entry ? 0 : m_emptyLooks + 1;
        if (entry && std::holds_alternative<QueuedEvent>(*entry)) {
            writeEvent(std::get<QueuedEvent>(*entry));
        } else if (entry) {
            RecordQueue::Frame& frame = std::get<RecordQueue::Frame>(*entry);
            writeFrame(*frame);
            m_queue.takeBack(std::move(frame));
        }
        everySecond();
    }
}

// With a limit of time the last frame is the first one at or behind it. When no frames come, the clock decides.
bool Take::isOver() const
{
    const RecordRequest& request = m_options.request;
    const bool all = request.frames > 0 && m_counts.frames >= request.frames;
    const bool late = m_counts.seconds >= request.seconds ||
                      (isIdle() && Seconds(Clock::now() - m_began).count() > request.seconds + 1);
    return all || (request.seconds > 0 && late);
}

// Whether nothing has come for longer than a camera needs for a frame. Time alone does not tell: while the disk is
// busy, frames wait.
bool Take::isIdle() const
{
    return m_emptyLooks > 1 && m_queue.bytes() == 0;
}

RecordedTime Take::at(const HostTime& time)
{
    m_last = {m_clock.at(time), time.real};
    return m_last;
}

void Take::writeFrame(const QueuedFrame& frame)
{
    const HostTime host{frame.header.real_time_ns, frame.header.monotonic_time_ns};
    const RecordedTime time = at(host);
    splitAt(time.log);
    if (frame.changed) {
        m_parameters = frame.changed;
        m_parametersWritten = false;
    }
    if (!std::exchange(m_parametersWritten, true))
        m_part->writer.parameters(*m_parameters, time);
    if (frame.header.dropped > 0)
        addEvent(kDroppedEvent, frame.header.dropped, host);
    if (frame.notRecorded > 0)
        addEvent(kNotRecordedEvent, frame.notRecorded, host);
    m_part->writer.frame(frame, time);
    count(frame);
}

void Take::count(const QueuedFrame& frame)
{
    const int64_t time = frame.header.monotonic_time_ns;
    m_firstFrame = m_counts.frames == 0 ? time : m_firstFrame;
    m_temperature = frame.header.temperature;
    ++m_part->frames;
    const std::lock_guard lock(m_mutex);
    ++m_counts.frames;
    m_counts.dropped += frame.header.dropped;
    m_counts.reopens += (frame.header.flags & VQD_WIRE_REOPENED) != 0;
    m_counts.seconds = static_cast<double>(time - m_firstFrame) / kNanoseconds;
    m_counts.bytes = m_bytesOfParts + m_part->writer.bytes();
}

void Take::writeEvent(const QueuedEvent& event)
{
    m_part->writer.event(event.name, event.json, at(event.time));
}

void Take::addEvent(const char* name, uint64_t frames, const HostTime& time)
{
    Json json = document("event");
    json["event"] = name;
    json["real-time-ns"] = time.real;
    json["monotonic-time-ns"] = time.monotonic;
    json["frames"] = frames;
    writeEvent({name, json, time});
}

void Take::everySecond()
{
    const auto now = Clock::now();
    const double passed = Seconds(now - m_second).count();
    if (passed < 1)
        return;
    m_second = now;
    const Counts before = std::exchange(m_before, m_counts);
    {
        const std::lock_guard lock(m_mutex);
        m_counts.bytesPerSecond = static_cast<double>(m_counts.bytes - before.bytes) / passed;
    }
    diagnose(before, passed);
    m_part->file->sync();
    requireRoom();
    tell();
}

void Take::diagnose(const Counts& before, double passed)
{
    using Status = msg::diagnostic_msgs::DiagnosticStatus;
    const uint64_t notRecorded = m_queue.notRecorded() - std::exchange(m_notRecordedBefore, m_queue.notRecorded());
    const uint64_t frames = m_counts.frames - before.frames, dropped = m_counts.dropped - before.dropped;
    const auto [level, message] = frames == 0       ? std::pair(Status::ERROR, "no frames come")
                                  : notRecorded > 0 ? std::pair(Status::WARN, "the disk is too slow")
                                  : dropped > 0     ? std::pair(Status::WARN, "frames were lost")
                                                    : std::pair(Status::OK, "streaming");
    const mcap::Names values{{"frames per second", formatted("%.2f", static_cast<double>(frames) / passed)},
                             {"frames", std::to_string(m_counts.frames)},
                             {"frames dropped", std::to_string(m_counts.dropped)},
                             {"frames not recorded", std::to_string(m_notRecordedBefore)},
                             {"re-opens", std::to_string(m_counts.reopens)},
                             {"temperature", formatted("%.4f", m_temperature)},
                             {"bytes per second", formatted("%.0f", m_counts.bytesPerSecond)},
                             {"bytes that wait", std::to_string(m_queue.bytes())},
                             {"bytes free", std::to_string(m_part->file->bytesFree())}};
    // Frames that wait are older than now, and what is written behind this must not be.
    m_part->writer.diagnostics(level, message, values, isIdle() ? at(hostTime()) : m_last);
}

void Take::requireRoom() const
{
    if (const uint64_t bytes = m_part->file->bytesFree(); bytes < m_options.keepFree)
        throw Failure(kFailed, "the disk has " + megabytes(bytes) + " free, and " + megabytes(m_options.keepFree) +
                                   " are to stay free");
}

void Take::splitAt(uint64_t now)
{
    const RecordRequest& request = m_options.request;
    const bool large = request.splitBytes > 0 && m_part->writer.bytes() >= request.splitBytes;
    const bool old =
        request.splitSeconds > 0 && static_cast<double>(now - m_part->began) / kNanoseconds >= request.splitSeconds;
    if (m_part->frames > 0 && (large || old)) {
        endPart();
        int number = m_number + 1;
        while (isTaken(m_options.folder / partFileName(request.name, number)))
            ++number;
        {
            const std::lock_guard lock(m_mutex); // not for longer: the loop may wait for it, and the disk may be slow
            m_number = number;
        }
        beginPart(now);
    }
    if (m_part->frames == 0)
        m_part->began = now;
}

void Take::beginPart(uint64_t now)
{
    const std::string topics =
        m_options.request.topics.empty() ? usualTopicName(m_options.facts.serial) : m_options.request.topics;
    auto file = std::make_unique<PartFile>(m_options.folder, partFileName(m_options.request.name, m_number));
    try {
        m_part = std::make_unique<Part>(file, m_options.facts,
                                        CameraWriter::Options{topics, m_options.request.compact, m_images,
                                                              m_options.request.compress, m_number, m_options.session},
                                        now);
    } catch (const std::exception&) {
        file->remove();
        throw;
    }
    m_parametersWritten = false;
    const std::lock_guard lock(m_mutex);
    m_present = m_part->file->path().string() + ".part";
}

void Take::endPart()
{
    const std::unique_ptr<Part> part = std::move(m_part);
    if (!part)
        return;
    if (part->frames == 0) {
        part->file->remove();
        const std::lock_guard lock(m_mutex);
        m_present.clear();
        return;
    }
    part->writer.finish();
    part->file->keep();
    m_bytesOfParts += part->writer.bytes();
    {
        const std::lock_guard lock(m_mutex);
        m_files.push_back(part->file->path().string());
        m_present.clear();
        m_counts.frames -= part->frames - part->writer.frames();
        m_counts.bytes = m_bytesOfParts;
    }
    if (const uint64_t lost = part->writer.lostMessages(); lost > 0)
        endWith("the disk is full, and the last " + std::to_string(lost) + " messages had no room");
}

void Take::endWith(const std::string& why)
{
    const std::lock_guard lock(m_mutex);
    if (m_error.find(why) == std::string::npos) // a full disk is one at the end, too
        m_error += (m_error.empty() ? "" : "; ") + why;
}
