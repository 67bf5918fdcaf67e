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

#include "host/bus_view.h"
#include "host/failure.h"
#include "host/library_lines.h"
#include "output.h"
#include "host/search_watch.h"

// What is known of a camera's EEPROM. In the last two cases the library stands in factory settings, or in zeros.
enum class Known { read, notSigned, notRead };

// What the library tells of a camera, where it is on the bus, and what its EEPROM holds. The serial number is
// "unknown" unless the EEPROM was read.
struct Camera : DevInfo {
    Place place;
    Known known;
    Eeprom eeprom;
};

// "03a4:871a"
std::string usbIds(const DevInfo& camera);

// "001:007", as lsusb -s takes it
std::string busAddress(const Camera& camera);

// "camera 0 at 1-2.3"
std::string nameOf(const Camera& camera);

// Index, serial number, names, ids and place; null is what is not known.
Json identityJson(const Camera& camera);

// Fails unless the EEPROM was read: for what would show, or go by, the library's stand-in.
void requireEeprom(const Camera& camera);

// Warns when the library stands in for the EEPROM, or when what that holds is not plausible.
void warnOfEeprom(const Camera& camera);

// The attached cameras; one session a process. Fails when there is none, or none that may be opened.
class Session
{
public:
    Session();
    const std::vector<Camera>& cameras() const { return m_cameras; }

    // The camera that the command line chooses, else the first. Warns of its EEPROM.
    const Camera& choose() const;

    // The same for what changes the camera: with several attached, one must be named.
    const Camera& chooseToChange() const;

    // Maps, rays, tables and switches are one set for the library, those of the camera that was loaded last: makes
    // them this camera's.
    void loadAlone(const Camera& camera) const;

private:
    // Closes what was claimed, and nothing else: the library sends a grab stop to each camera that it closes, also to
    // one that another program streams from. The end of the process lets go of those that were only listed.
    struct Closer {
        ~Closer();
    } m_closer;
    std::vector<Camera> m_cameras;
};

// Fails when the camera is not on the bus any more.
void requirePresent(const Camera& camera, const std::string& message);

// Fails with the message, as lost when the camera is not on the bus any more.
[[noreturn]] void failOn(const Camera& camera, const std::string& message);

// Claims the camera; the end of the session closes it.
void claim(const Camera& camera);
bool tryClaim(const Camera& camera);

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
