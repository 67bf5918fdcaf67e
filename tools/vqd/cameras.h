// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Cameras as commands use them: chosen by the command line, with warnings and steps said on standard error, and given
// back on every way out.
#pragma once

#include <vector>

#include "host/camera_list.h"
#include "host/camera_stream.h"

// The attached cameras; one object a process. Its end closes what was claimed. Fails when there is no camera, or none
// that may be opened.
class Cameras
{
public:
    Cameras();
    ~Cameras();
    Cameras(const Cameras&) = delete;
    Cameras& operator=(const Cameras&) = delete;

    const std::vector<ListedCamera>& all() const { return m_cameras; }

    // The camera that the command line names, else the first. Warns about its EEPROM.
    const ListedCamera& choose() const;

    // The same for a command that changes the camera: where several are attached, one must be named.
    const ListedCamera& chooseToChange() const;

    // As host's loadAlone(). The second applies the host's profile of the camera too, unless --no-profile was given.
    void loadAlone(const ListedCamera& camera) const;
    void loadWithProfile(const ListedCamera& camera) const;

private:
    std::vector<ListedCamera> m_cameras;
};

void warnOfEeprom(const ListedCamera& camera);

// Claims the camera; the end of Cameras closes it.
void claim(const ListedCamera& camera);

// Claims a camera and grabs. It says when the library searches for a lost camera, and a signal ends its reads. Make it
// after Output.
class Stream : public CameraStream
{
public:
    explicit Stream(const ListedCamera& camera);
};
