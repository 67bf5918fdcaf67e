// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// See camera.h.
#include "camera.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include <libusb.h>

#include "common.h"
#include "exit_codes.h"
#include "interrupt.h"
#include "usb_devices.h"

namespace
{

struct Place {
    int bus, address;
    bool operator==(const Place&) const = default;
};

// Where cameras are, also those that can not be opened, in the library's order.
std::vector<Place> cameraPlaces()
{
    std::vector<Place> places;
    libusb_context* context = nullptr;
    libusb_device** devices = nullptr;
    if (libusb_init(&context) != 0)
        return places;
    const ssize_t count = libusb_get_device_list(context, &devices);
    for (ssize_t i = 0; i < count; ++i)
        if (device_is_of_interest(devices[i]))
            places.push_back({libusb_get_bus_number(devices[i]), libusb_get_device_address(devices[i])});
    if (count >= 0)
        libusb_free_device_list(devices, 1);
    libusb_exit(context);
    return places;
}

// 0, or the errno that this user gets. Asking for the permission alone would miss what a container forbids.
int openingError(const std::string& path)
{
    const int node = open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (node < 0)
        return errno;
    close(node);
    return 0;
}

// Why there is no list of cameras.
[[noreturn]] void failListing()
{
    if (m_nDeviceCount > VQD_MAX_DEVICES)
        throw Failure(kFailed, std::to_string(m_nDeviceCount) + " cameras are attached; " +
                                   std::to_string(VQD_MAX_DEVICES) + " is the most that can be used");
    const std::vector<Place> places = cameraPlaces();
    for (const auto& [bus, address] : places) {
        const std::string node = deviceNode(bus, address);
        if (const int error = openingError(node); error != 0)
            throw Failure(kNoAccess, "a camera is attached but " + node + " can not be opened: " + strerror(error));
    }
    if (!places.empty())
        throw Failure(kFailed, "a camera is attached but can not be opened");
    throw Failure(kNoCamera, "no camera found");
}

// "1-7" and "001-007" alike.
bool isPlace(const std::string& text, const Place& place)
{
    Place named{};
    const char* const end = text.data() + text.size();
    const auto bus = std::from_chars(text.data(), end, named.bus);
    if (bus.ec != std::errc{} || bus.ptr == end || *bus.ptr != '-')
        return false;
    const auto address = std::from_chars(bus.ptr + 1, end, named.address);
    return address.ec == std::errc{} && address.ptr == end && named == place;
}

} // namespace

std::string usbIds(const DevInfo& camera)
{
    char text[16];
    snprintf(text, sizeof text, "%04x:%04x", camera.nVendorId, camera.nProductId);
    return text;
}

std::string place(const Camera& camera)
{
    return std::to_string(camera.bus) + "-" + std::to_string(camera.address);
}

Json identityJson(const Camera& camera)
{
    return {{"index", camera.nIndex},        {"serial", camera.szSerialNumber}, {"product", camera.szDeviceName},
            {"vendor", camera.szVendorName}, {"usb", usbIds(camera)},           {"bus", camera.bus},
            {"address", camera.address}};
}

Session::Session()
{
    DevInfo list[VQD_MAX_DEVICES];
    constexpr int kUntouched = -100; // it stays when libusb is not up
    int count = kUntouched;
    catchInterrupts();
    if (vqdGetDeviceList(list, &count) != VQD_OK && count == kUntouched)
        throw Failure(kFailed, "libusb does not start");
    if (count < 0)
        failListing();
    const std::vector<Place> places = cameraPlaces();
    if (places.size() != static_cast<size_t>(count))
        throw Failure(places.size() < static_cast<size_t>(count) ? kCameraLost : kFailed,
                      "cameras came or went while they were listed");
    for (size_t i = 0; i < places.size(); ++i) {
        m_cameras.push_back({list[i], places[i].bus, places[i].address});
        detail("camera %zu: %s, serial %s, at %s", i, list[i].szDeviceName, list[i].szSerialNumber,
               place(m_cameras.back()).c_str());
    }
    endIfInterrupted();
}

Session::Closer::~Closer()
{
    for (int n = 0; n < VQD_MAX_DEVICES; ++n)
        vqdDeviceClose(n); // an empty number is no error
}

const Camera& Session::choose() const
{
    const std::string& wanted = common.camera;
    if (wanted.empty())
        return m_cameras.front();
    const auto fits = [&](const Camera& camera) {
        return wanted == camera.szSerialNumber || wanted == std::to_string(camera.nIndex) ||
               isPlace(wanted, {camera.bus, camera.address});
    };
    const auto found = std::find_if(m_cameras.begin(), m_cameras.end(), fits);
    if (found == m_cameras.end())
        throw Failure(kNoCamera, "no camera has the index, serial number or BUS-ADDRESS " + wanted);
    if (std::any_of(found + 1, m_cameras.end(), fits))
        throw Failure(kUsage, "several cameras have the serial number " + wanted + "; choose by BUS-ADDRESS");
    return *found;
}

const Camera& Session::chooseToChange() const
{
    if (common.camera.empty() && m_cameras.size() > 1)
        throw Failure(kUsage, "several cameras: choose one with -c, see vqd list");
    return choose();
}

void Session::loadAlone(const Camera& camera) const
{
    unsigned char image[VQD_IMAGE_BYTES];
    if (m_cameras.size() > 1 && vqdEEPROM_ParameterData_Load(camera.nIndex, image) != 1)
        failOn(camera, "the camera's parameters could not be loaded");
}

void requirePresent(const Camera& camera, const std::string& message)
{
    const std::vector<Place> places = cameraPlaces();
    if (std::find(places.begin(), places.end(), Place{camera.bus, camera.address}) == places.end())
        throw Failure(kCameraLost, message + ": the camera is gone");
}

void failOn(const Camera& camera, const std::string& message)
{
    requirePresent(camera, message);
    throw Failure(kFailed, message);
}

void claim(const Camera& camera)
{
    if (vqdDeviceOpen(camera.nIndex) != VQD_OK)
        failOn(camera, std::string("camera ") + camera.szSerialNumber + " can not be opened");
    detail("camera %d is claimed", camera.nIndex);
}

Stream::Stream(const Camera& camera) : m_number(camera.nIndex), m_notes(camera.nIndex, camera.szSerialNumber)
{
    claim(camera);
    endIfInterrupted();
    if (vqdGrabStart(m_number) != VQD_OK)
        failOn(camera, std::string("camera ") + camera.szSerialNumber + " does not start grabbing");
    detail("camera %d is grabbing", m_number);
}

Stream::~Stream()
{
    vqdGrabStop(m_number);
}

NoUsbMemory::NoUsbMemory()
    : Failure(kFailed, std::string("the kernel has no memory left for a frame (usbfs, LIBUSB_ERROR_NO_MEM); other "
                                   "programs' transfers count too. For more: ") +
                           kMoreUsbMemory)
{
}

bool Stream::tryRead(Frame& frame)
{
    uint16_t* images[2] = {frame.amplitude.data(), frame.depth.data()};
    m_notes.readBegins();
    const int result = vqdReadFromDevice(m_number, images, &frame.info);
    m_reopened = m_notes.readEnds();
    m_printed = m_lines.take();
    endIfInterrupted();
    if (noMemory() && !m_toldMemory)
        note("%s", NoUsbMemory().what());
    m_toldMemory = m_toldMemory || noMemory();
    if (result <= 0)
        throw Failure(kCameraLost, "the camera is lost (frame read " + std::to_string(result) + ")");
    return !m_reopened;
}

bool Stream::read(Frame& frame)
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
