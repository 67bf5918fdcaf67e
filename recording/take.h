// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// One recording from its request to its end: a thread that writes what the queue holds into one file or several.
#pragma once

#include <atomic>
#include <functional>
#include <thread>

#include "recording/camera_writer.h"
#include "recording/log_clock.h"
#include "recording/part_file.h"
#include "recording/record_request.h"

class Take
{
public:
    struct Options {
        std::filesystem::path folder;
        uint64_t keepFree;
        RecordRequest request;
        CameraFacts facts;
        uint64_t session;
        std::function<void(const Json& state)> tell; // from the thread, now and then and at the end
        std::function<bool()> ends;                  // whether the process is to end soon; of the thread, too
    };

    // Makes the first file. Fails when it cannot be made, or the disk is full.
    Take(Options options, std::shared_ptr<const RecordedParameters> parameters);
    ~Take(); // ends it within a second or so

    RecordQueue& queue() { return m_queue; }
    bool ended() const { return m_ended; } // all files are complete, or never will be
    void end();                            // soon, with what can be written by then
    Json state() const;                    // as in the state of a worker

private:
    using Clock = std::chrono::steady_clock;
    struct Part { // a file
        Part(std::unique_ptr<PartFile>& empty, const CameraFacts& facts, CameraWriter::Options options, uint64_t now)
            : writer(empty->descriptor(), facts, std::move(options), now), file(std::move(empty))
        {
        }
        CameraWriter writer;
        const std::unique_ptr<PartFile> file;
        uint64_t began = 0; // on the time axis, with the first frame
        uint64_t frames = 0;
    };
    // What state() shows and the diagnostics are made of.
    struct Counts {
        uint64_t frames = 0, dropped = 0, reopens = 0, bytes = 0;
        double seconds = 0, bytesPerSecond = 0;
    };

    void run();
    void write();
    void writeFrame(const QueuedFrame& frame);
    void writeEvent(const QueuedEvent& event);
    void addEvent(const char* name, uint64_t frames, const HostTime& time);
    void count(const QueuedFrame& frame);
    bool isOver() const;
    bool isIdle() const;
    const char* condition() const;
    void everySecond();
    void diagnose(const Counts& before, double passed);
    void beginPart(uint64_t now);
    void endPart();
    void splitAt(uint64_t now);
    void requireRoom() const;
    void endWith(const std::string& why);
    void tell() const { m_options.tell(state()); }
    RecordedTime at(const HostTime& time);

    const Options m_options;
    const bool m_images;
    RecordQueue m_queue;
    LogClock m_clock;
    RecordedTime m_last{};                                  // of what was written
    std::shared_ptr<const RecordedParameters> m_parameters; // that hold now
    bool m_parametersWritten = false;                       // to the present file
    std::unique_ptr<Part> m_part;
    int64_t m_firstFrame = 0; // CLOCK_MONOTONIC in ns
    double m_temperature = 0;
    uint64_t m_bytesOfParts = 0; // of the files before the present one
    const Clock::time_point m_began = Clock::now();
    Clock::time_point m_second = m_began; // the present second began
    int m_emptyLooks = 0;                 // in a row, into the queue
    Counts m_before;                      // this second
    uint64_t m_notRecordedBefore = 0;

    mutable std::mutex m_mutex; // guards what state() shows
    int m_number;               // of the present part
    Json m_files = Json::array();
    std::string m_present; // the file that is being written; empty when there is none
    std::string m_error;
    Counts m_counts;
    std::atomic<bool> m_ended = false, m_cut = false; // by end(), while it still took frames

    std::thread m_thread; // last: it uses all of the above
};
