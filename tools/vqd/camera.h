// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Cameras for as long as they are needed: what the library opens and starts is stopped and closed on every way out.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "VQD_API.h"

#include "exit_codes.h"
#include "library_lines.h"
#include "output.h"
#include "search_notes.h"

// What the library tells of a camera, and where it is on the bus.
struct Camera : DevInfo {
    int bus, address;
};

// "03a4:871a"
std::string usbIds(const DevInfo& camera);

// "1-7"
std::string place(const Camera& camera);

// Index, serial number, names, ids and place.
Json identityJson(const Camera& camera);

// The attached cameras; one session a process. Fails when there is none, or none that may be opened.
class Session
{
public:
    Session();
    const std::vector<Camera>& cameras() const { return m_cameras; }

    // The camera that the command line chooses, else the first.
    const Camera& choose() const;

    // The same for what changes the camera: with several attached, one must be named.
    const Camera& chooseToChange() const;

    // Maps, rays, tables and switches are one set for the library, those of the camera that was loaded last: makes
    // them this camera's.
    void loadAlone(const Camera& camera) const;

private:
    // Also when listing fails the library may hold cameras.
    struct Closer {
        ~Closer();
    } m_closer;
    std::vector<Camera> m_cameras;
};

// Fails when the camera is not on the bus any more.
void requirePresent(const Camera& camera, const std::string& message);

// Fails with the message, as lost when the camera is not on the bus any more.
[[noreturn]] void failOn(const Camera& camera, const std::string& message);

// Claims the camera.
void claim(const Camera& camera);

struct Frame {
    std::array<uint16_t, VQD_PIXELS> amplitude{}, depth{};
    FrameInfo info{};
};

// The kernel has no memory for a frame's transfer.
struct NoUsbMemory : Failure {
    NoUsbMemory();
};

// A camera of a session, open and grabbing. Make it after Output. It says when the library searches for a lost camera.
class Stream
{
public:
    explicit Stream(const Camera& camera);
    ~Stream();
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    // Waits for the next frame. Fails when the camera is lost, or sends none after re-opens. Returns whether there was
    // a re-open.
    bool read(Frame& frame);

    // One read of the library. False when it had to re-open the camera: what it gives then is no new frame.
    bool tryRead(Frame& frame);

    // Of the latest read, also one that failed: the re-open, and what the library printed.
    bool reopened() const { return m_reopened; }
    const std::vector<std::string>& lines() const { return m_printed; }

private:
    bool noMemory() const { return countStarting(m_printed, kNoUsbMemory) > 0; }

    const int m_number;
    LibraryLines m_lines;
    SearchNotes m_notes;
    bool m_reopened = false, m_toldMemory = false;
    std::vector<std::string> m_printed;
};
