// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The frames of a claimed camera, one by one, and what the library does on the way to keep them coming.
#pragma once

#include <functional>

#include "host/depth_frame.h"
#include "host/host_time.h"
#include "host/library_lines.h"
#include "host/listed_camera.h"
#include "host/search_watch.h"

// The kernel has no memory for the transfer of a frame.
struct NoUsbMemory : Failure {
    NoUsbMemory();
};

// What callers may want to know while a read is under way. Each may be left out.
struct StreamEvents {
    SearchEvents search;
    std::function<void()> returned; // after each read of the library; what it throws ends the stream's read
    std::function<void()> noMemory; // once a stream, as NoUsbMemory says
};

// Whether the host now makes something else of frames than the camera sent: undistorts, corrects or removes edges.
bool changesFrames(const ListedCamera& camera);

// A claimed camera that grabs, until the stream ends. It keeps the library's lines, so make it after whatever redirects
// standard output.
class CameraStream
{
public:
    explicit CameraStream(const ListedCamera& camera, StreamEvents events = {});
    ~CameraStream();
    CameraStream(const CameraStream&) = delete;
    CameraStream& operator=(const CameraStream&) = delete;

    // Waits for the next frame, and returns whether the library re-opened the camera before it. Fails when the camera
    // is lost, or sends no frame even after several re-opens.
    bool read(DepthFrame& frame);

    // One read of the library. False when the library had to re-open the camera: it then delivers no new frame.
    bool tryRead(DepthFrame& frame);

    // Of the latest read, even if it failed: whether there was a re-open, when it ended, and what the library printed.
    bool reopened() const { return m_reopened; }
    const HostTime& time() const { return m_time; } // when it returned
    const std::vector<std::string>& lines() const { return m_printed; }

private:
    bool noMemory() const { return countStarting(m_printed, kNoUsbMemory) > 0; }

    const int m_number;
    const StreamEvents m_events;
    LibraryLines m_lines;
    SearchWatch m_search;
    bool m_reopened = false, m_toldMemory = false;
    HostTime m_time{};
    std::vector<std::string> m_printed;
};
