// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A series of frames in a directory of its own: the files of each frame, and frames.csv with a line for each.
#pragma once

#include <condition_variable>
#include <deque>
#include <exception>
#include <filesystem>
#include <memory>
#include <mutex>
#include <thread>

#include "host/arrivals.h"

#include "frame_files.h"

// Fails when the directory holds files of a series, unless --force was given.
void requireNoSeries(const std::filesystem::path& directory);

// Writes on a thread of its own, so that a slow disk does not hold up the reading. When the first frame is complete,
// the rest of an older series is removed. A line of frames.csv is written once the frame's files are complete.
class Series
{
public:
    Series(std::filesystem::path directory, SeriesFormat format);
    ~Series(); // frames that still wait are not written
    Series(const Series&) = delete;
    Series& operator=(const Series&) = delete;

    // Waits while too many frames wait already. Fails when a file could not be written.
    void add(const DepthFrame& frame, const Arrival& arrival);

    // Writes the waiting frames and brings all files to the disk. Fails as add() does.
    void finish();

    int kept() const { return m_kept; }      // complete frames, after finish()
    bool heldUp() const { return m_heldUp; } // add() had to wait

private:
    class Table;
    struct Job {
        DepthFrame frame;
        Arrival arrival;
    };

    void run();
    void write(const Job& job, int number);
    void removeOlder(const std::vector<FrameFile>& but);
    void end(bool drop);

    const std::filesystem::path m_directory;
    const SeriesFormat m_format;
    std::vector<std::string> m_older; // names in the directory
    std::unique_ptr<Table> m_table;
    int m_kept = 0;
    bool m_heldUp = false;

    std::mutex m_mutex; // guards what follows
    std::condition_variable m_changed;
    std::deque<std::unique_ptr<Job>> m_jobs;
    bool m_ending = false;
    std::exception_ptr m_error;
    std::thread m_thread; // last: it uses all of the above
};
