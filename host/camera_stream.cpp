// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Starting, reading and stopping, with the library's result and lines made into one answer a frame.
#include "host/camera_stream.h"

#include "device/base/models.h"

#include "host/usb_devices.h"

NoUsbMemory::NoUsbMemory()
    : Failure(kFailed, std::string("the kernel has no memory left for a frame (usbfs, LIBUSB_ERROR_NO_MEM). The "
                                   "transfers of all programs share that memory. For more: ") +
                           kMoreUsbMemory)
{
}

bool changesFrames(const ListedCamera& camera)
{
    const bool resampled = m_nUndistortionMode >= 1 && m_nUndistortionMode <= 3;
    const bool corrected = m_bFPPN == 1 || m_bOrthogonal == 1 || m_bRemoveEdge == 1;
    return resampled || (corrected && IsHostCorrectedProduct(camera.szDeviceName));
}

CameraStream::CameraStream(const ListedCamera& camera, StreamEvents events)
    : m_number(camera.nIndex), m_events(std::move(events)), m_search(camera.nIndex, m_events.search)
{
    if (vqdGrabStart(m_number) != VQD_OK)
        failOn(camera, nameOf(camera) + " does not start grabbing");
}

CameraStream::~CameraStream()
{
    vqdGrabStop(m_number);
}

bool CameraStream::tryRead(DepthFrame& frame)
{
    uint16_t* images[2] = {frame.amplitude.data(), frame.depth.data()};
    m_search.readBegins();
    const int result = vqdReadFromDevice(m_number, images, &frame.info);
    m_time = hostTime();
    m_reopened = m_search.readEnds();
    m_printed = m_lines.take();
    if (m_events.returned)
        m_events.returned();
    if (noMemory() && !m_toldMemory && m_events.noMemory)
        m_events.noMemory();
    m_toldMemory = m_toldMemory || noMemory();
    if (result <= 0)
        throw Failure(kCameraLost, "the camera is lost (frame read " + std::to_string(result) + ")");
    return !m_reopened;
}

bool CameraStream::read(DepthFrame& frame)
{
    constexpr int kReopens = 3;
    bool shortOfMemory = false;
    for (int i = 0; i < kReopens; ++i) {
        if (tryRead(frame))
            return i > 0;
        shortOfMemory = shortOfMemory || noMemory();
    }
    if (shortOfMemory)
        throw NoUsbMemory();
    throw Failure(kCameraLost, "the camera sends no frames, not even after " + std::to_string(kReopens) + " re-opens");
}
