// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// See camera.h.
#include "camera.h"

#include <algorithm>
#include <cstdio>

#include "exit_codes.h"
#include "interrupt.h"

std::string usbIds(const DevInfo& camera)
{
    char text[16];
    snprintf(text, sizeof text, "%04x:%04x", camera.nVendorId, camera.nProductId);
    return text;
}

Session::Session() : m_cameras(VQD_MAX_DEVICES)
{
    int count = 0;
    if (vqdGetDeviceList(m_cameras.data(), &count) == VQD_OK) {
        m_cameras.resize(static_cast<size_t>(count));
        return;
    }
    if (m_nDeviceCount > VQD_MAX_DEVICES)
        throw Failure(kFailed, std::to_string(m_nDeviceCount) + " cameras are attached; " +
                                   std::to_string(VQD_MAX_DEVICES) + " is the most that can be used");
    throw Failure(kNoCamera, "no camera found");
}

Session::Closer::~Closer()
{
    for (int n = 0; n < VQD_MAX_DEVICES; ++n)
        vqdDeviceClose(n); // an empty number is no error
}

const DevInfo& Session::choose(const std::string& wanted) const
{
    if (wanted.empty())
        return m_cameras.front();
    const auto fits = [&](const DevInfo& camera) {
        return wanted == camera.szSerialNumber || wanted == std::to_string(camera.nIndex);
    };
    const auto found = std::find_if(m_cameras.begin(), m_cameras.end(), fits);
    if (found == m_cameras.end())
        throw Failure(kNoCamera, "no camera has the index or serial number " + wanted);
    if (std::any_of(found + 1, m_cameras.end(), fits))
        throw Failure(kUsage, "several cameras have the serial number " + wanted + "; choose by index");
    return *found;
}

const DevInfo& Session::chooseToChange(const std::string& wanted) const
{
    if (wanted.empty() && m_cameras.size() > 1)
        throw Failure(kUsage, "several cameras: choose one with -c INDEX or -c SERIAL");
    return choose(wanted);
}

// The library calls a refused write a success: what the EEPROM holds afterwards decides.
void requireStored(int n)
{
    unsigned char written[VQD_IMAGE_BYTES];
    unsigned char stored[VQD_IMAGE_BYTES];
    if (vqdParameterData_Load(n, written) != 1 || vqdEEPROM_ParameterData_Load(n, stored) != 1 ||
        !std::equal(written, written + VQD_EEPROM_BYTES, stored))
        throw Failure(kVerification, "the EEPROM does not hold what was written");
}

Stream::Stream(const DevInfo& camera) : m_number(camera.nIndex)
{
    if (vqdDeviceOpen(m_number) != VQD_OK)
        throw Failure(kFailed, std::string("camera ") + camera.szSerialNumber + " can not be opened");
    endIfInterrupted();
    if (vqdGrabStart(m_number) != VQD_OK)
        throw Failure(kFailed, std::string("camera ") + camera.szSerialNumber + " does not start grabbing");
}

Stream::~Stream()
{
    vqdGrabStop(m_number);
}

void Stream::read(Frame& frame)
{
    uint16_t* images[2] = {frame.amplitude.data(), frame.depth.data()};
    const int result = vqdReadFromDevice(m_number, images, &frame.info);
    endIfInterrupted();
    if (result <= 0)
        throw Failure(kCameraLost, "the camera is lost (frame read " + std::to_string(result) + ")");
}
