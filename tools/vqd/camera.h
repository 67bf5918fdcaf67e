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

// "03a4:871a"
std::string usbIds(const DevInfo& camera);

// The attached cameras; one session a process. Fails when there is none.
class Session
{
public:
    Session();
    const std::vector<DevInfo>& cameras() const { return m_cameras; }

    // By index or serial number; the first camera when `wanted` is empty.
    const DevInfo& choose(const std::string& wanted) const;

    // The same for what changes the camera: with several attached, one must be named.
    const DevInfo& chooseToChange(const std::string& wanted) const;

private:
    // Also when listing fails the library may hold cameras.
    struct Closer {
        ~Closer();
    } m_closer;
    std::vector<DevInfo> m_cameras;
};

// Reads the EEPROM back; fails when its 128 bytes are not those of the host's image.
void requireStored(int n);

struct Frame {
    std::array<uint16_t, VQD_PIXELS> amplitude{}, depth{};
    FrameInfo info{};
};

// A camera of a session, open and grabbing.
class Stream
{
public:
    explicit Stream(const DevInfo& camera);
    ~Stream();
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    // Waits for the next frame. Fails when the camera is lost.
    void read(Frame& frame);

private:
    int m_number;
};
