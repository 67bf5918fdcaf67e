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
#include <utility>

#include "common.h"
#include "host/failure.h"
#include "interrupt.h"
#include "host/plausibility.h"
#include "host/usb_devices.h"

namespace
{

bool g_claimed[VQD_MAX_DEVICES]; // by number

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
    for (const Place& place : places) {
        const std::string node = deviceNode(place.bus, place.address);
        if (const int error = openingError(node); error != 0)
            throw Failure(kNoAccess, "a camera is attached but " + node + " cannot be opened: " + strerror(error));
    }
    if (!places.empty())
        throw Failure(kFailed, "a camera is attached but cannot be opened");
    throw Failure(kNoCamera, "no camera found");
}

// "1:7" and "001:007" alike. A dash stands in port paths alone, so that neither is taken for the other.
bool isBusAddress(const std::string& text, const Place& place)
{
    Place named{};
    const char* const end = text.data() + text.size();
    const auto bus = std::from_chars(text.data(), end, named.bus);
    if (bus.ec != std::errc{} || bus.ptr == end || *bus.ptr != ':')
        return false;
    const auto address = std::from_chars(bus.ptr + 1, end, named.address);
    return address.ec == std::errc{} && address.ptr == end && named == place;
}

// What the library made of the EEPROM is compared with what it holds.
Camera cameraFrom(const DevInfo& info, const Place& place)
{
    Camera camera{info, place, Known::notRead, {}};
    unsigned char image[VQD_IMAGE_BYTES];
    const EepromRead read = readEeprom(place);
    camera.eeprom = read.bytes;
    if (read.whole() && !read.isSigned())
        camera.known = Known::notSigned;
    else if (read.whole() && vqdParameterData_Load(info.nIndex, image) == 1 &&
             std::equal(read.bytes.begin(), read.bytes.end(), image))
        camera.known = Known::read;
    if (camera.known != Known::read)
        strcpy(camera.szSerialNumber, "unknown");
    return camera;
}

// Why the library's stand-in is used, as the end of a sentence that starts with the EEPROM.
const char* troubleOf(const Camera& camera)
{
    return camera.known == Known::notSigned ? "has no signature" : "cannot be read";
}

// "; grab (process 123) has it open", for those of other programs that this user may see.
std::string holdersText(const Camera& camera)
{
    std::string text;
    for (const Holder& holder : holdersOf(deviceNode(camera.place.bus, camera.place.address)))
        text += "; " + holder.name + " (process " + std::to_string(holder.process) + ") has it open";
    return text;
}

} // namespace

std::string usbIds(const DevInfo& camera)
{
    char text[16];
    snprintf(text, sizeof text, "%04x:%04x", camera.nVendorId, camera.nProductId);
    return text;
}

std::string busAddress(const Camera& camera)
{
    char text[32];
    snprintf(text, sizeof text, "%03d:%03d", camera.place.bus, camera.place.address);
    return text;
}

std::string nameOf(const Camera& camera)
{
    return "camera " + std::to_string(camera.nIndex) + " at " +
           (camera.place.port.empty() ? busAddress(camera) : camera.place.port);
}

Json identityJson(const Camera& camera)
{
    const Json serial = camera.known == Known::read ? Json(camera.szSerialNumber) : Json();
    const Json port = camera.place.port.empty() ? Json() : Json(camera.place.port);
    return {{"index", camera.nIndex},         {"serial", serial},
            {"product", camera.szDeviceName}, {"vendor", camera.szVendorName},
            {"usb", usbIds(camera)},          {"port", port},
            {"bus", camera.place.bus},        {"address", camera.place.address}};
}

void requireEeprom(const Camera& camera)
{
    if (camera.known != Known::read)
        failOn(camera, "the EEPROM of " + nameOf(camera) + ' ' + troubleOf(camera));
}

void warnOfEeprom(const Camera& camera)
{
    const std::string name = nameOf(camera);
    if (camera.known != Known::read)
        warn("the EEPROM of %s %s: the library uses factory settings and a standard lens", name.c_str(),
             troubleOf(camera));
    else
        for (const Implausible& one : implausibleIn(camera.eeprom))
            warn("the EEPROM of %s: %s", name.c_str(), one.text.c_str());
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
        const Camera& camera = m_cameras.emplace_back(cameraFrom(list[i], places[i]));
        detail("%s: %s, serial %s", nameOf(camera).c_str(), camera.szDeviceName, camera.szSerialNumber);
    }
    endIfInterrupted();
}

Session::Closer::~Closer()
{
    for (int n = 0; n < VQD_MAX_DEVICES; ++n)
        if (std::exchange(g_claimed[n], false))
            vqdDeviceClose(n);
}

const Camera& Session::choose() const
{
    const std::string& wanted = common.camera;
    const auto fits = [&](const Camera& camera) {
        return wanted.empty() || wanted == std::to_string(camera.nIndex) || wanted == camera.place.port ||
               isBusAddress(wanted, camera.place) || (camera.known == Known::read && wanted == camera.szSerialNumber);
    };
    const auto found = std::find_if(m_cameras.begin(), m_cameras.end(), fits);
    if (found == m_cameras.end())
        throw Failure(kNoCamera, "no camera has the index, serial number, port or BUS:ADDRESS " + wanted);
    if (!wanted.empty() && std::any_of(found + 1, m_cameras.end(), fits))
        throw Failure(kUsage, "several cameras have the serial number " + wanted + "; choose by port");
    warnOfEeprom(*found);
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
    if (m_cameras.size() == 1)
        return;
    if (vqdEEPROM_ParameterData_Load(camera.nIndex, image) != 1)
        failOn(camera, "the camera's parameters could not be loaded");
    if (camera.known == Known::read && !std::equal(camera.eeprom.begin(), camera.eeprom.end(), image))
        failOn(camera, "the EEPROM of " + nameOf(camera) + " reads differently the second time");
}

void requirePresent(const Camera& camera, const std::string& message)
{
    const std::vector<Place> places = cameraPlaces();
    if (std::find(places.begin(), places.end(), camera.place) == places.end())
        throw Failure(kCameraLost, message + ": the camera is gone");
}

void failOn(const Camera& camera, const std::string& message)
{
    requirePresent(camera, message);
    throw Failure(kFailed, message);
}

bool tryClaim(const Camera& camera)
{
    g_claimed[camera.nIndex] = vqdDeviceOpen(camera.nIndex) == VQD_OK;
    return g_claimed[camera.nIndex];
}

void claim(const Camera& camera)
{
    if (!tryClaim(camera))
        failOn(camera, nameOf(camera) + " cannot be opened" + holdersText(camera));
    detail("camera %d is claimed", camera.nIndex);
}

Stream::Stream(const Camera& camera) : m_number(camera.nIndex), m_notes(camera.nIndex, camera.szSerialNumber)
{
    claim(camera);
    endIfInterrupted();
    if (vqdGrabStart(m_number) != VQD_OK)
        failOn(camera, nameOf(camera) + " does not start grabbing");
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
