// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The host's cameras with the command line, the messages and the signals of the tool.
#include "cameras.h"

#include "host/claim.h"
#include "host/profile.h"

#include "interrupt.h"
#include "messages.h"
#include "options.h"

Cameras::Cameras()
{
    catchInterrupts();
    m_cameras = listCameras();
    for (const ListedCamera& camera : m_cameras)
        detail("%s: %s, serial %s", nameOf(camera).c_str(), camera.szDeviceName, camera.szSerialNumber);
    endIfInterrupted();
}

Cameras::~Cameras()
{
    closeClaimed();
}

const ListedCamera& Cameras::choose() const
{
    const ListedCamera& camera = cameraNamed(m_cameras, common.camera);
    warnOfEeprom(camera);
    return camera;
}

const ListedCamera& Cameras::chooseToChange() const
{
    if (common.camera.empty() && m_cameras.size() > 1)
        throw Failure(kUsage, "several cameras are attached: choose one with -c, as shown by vqd list");
    return choose();
}

void Cameras::loadAlone(const ListedCamera& camera) const
{
    ::loadAlone(m_cameras, camera);
}

static FoundProfile foundProfile(std::span<const ListedCamera> cameras, const ListedCamera& camera)
{
    try {
        return findProfile(cameras, camera);
    } catch (const Failure& failure) {
        throw Failure(failure.code, std::string(failure.what()) + "; --no-profile works without it");
    }
}

void Cameras::loadWithProfile(const ListedCamera& camera) const
{
    loadAlone(camera);
    if (common.noProfile)
        return;
    const FoundProfile found = foundProfile(m_cameras, camera);
    if (!found.warning.empty())
        warn("%s", found.warning.c_str());
    applyProfile(camera, found);
    if (found.values)
        note("the profile %s is in use", found.path.c_str());
}

void warnOfEeprom(const ListedCamera& camera)
{
    for (const std::string& sentence : eepromWarnings(camera))
        warn("%s", sentence.c_str());
}

void claim(const ListedCamera& camera)
{
    requireClaim(camera);
    detail("camera %d is claimed", camera.nIndex);
}

static const ListedCamera& claimed(const ListedCamera& camera)
{
    claim(camera);
    endIfInterrupted();
    return camera;
}

static StreamEvents eventsOf(const std::string& name)
{
    return {{[name] { note("%s is lost, searching", name.c_str()); },
             [name](double seconds) { note("%s is back after %.1f s", name.c_str(), seconds); }},
            endIfInterrupted,
            [] { note("%s", NoUsbMemory().what()); }};
}

Stream::Stream(const ListedCamera& camera) : CameraStream(claimed(camera), eventsOf(nameOf(camera)))
{
    detail("camera %d is grabbing", camera.nIndex);
}
