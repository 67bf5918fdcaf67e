// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The library's listing, completed by what libusb shows, and the choice of one camera.
#include "host/camera_list.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "host/usb_devices.h"

namespace
{

// 0, or the errno that this user gets. The permission bits alone would miss what a container forbids.
int openingError(const std::string& path)
{
    const int node = open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (node < 0)
        return errno;
    close(node);
    return 0;
}

// Says why there is no list of cameras.
[[noreturn]] void failListing()
{
    if (m_nDeviceCount > VQD_MAX_DEVICES)
        throw Failure(kFailed, std::to_string(m_nDeviceCount) + " cameras are attached, but no more than " +
                                   std::to_string(VQD_MAX_DEVICES) + " can be used");
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

// "1:7" is the same as "001:007". A port path has a dash instead, so neither is taken for the other.
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

// What the library made of the EEPROM is compared with what the EEPROM holds.
ListedCamera cameraFrom(const DevInfo& info, const Place& place)
{
    ListedCamera camera{info, place, Known::notRead, {}};
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

} // namespace

std::vector<ListedCamera> listCameras()
{
    DevInfo list[VQD_MAX_DEVICES];
    constexpr int kUntouched = -100; // the library leaves the count alone when libusb does not start
    int count = kUntouched;
    if (vqdGetDeviceList(list, &count) != VQD_OK && count == kUntouched)
        throw Failure(kFailed, "libusb does not start");
    if (count < 0)
        failListing();
    const std::vector<Place> places = cameraPlaces();
    if (places.size() != static_cast<size_t>(count))
        throw Failure(places.size() < static_cast<size_t>(count) ? kCameraLost : kFailed,
                      "cameras were plugged in or out while they were listed");
    std::vector<ListedCamera> cameras;
    for (size_t i = 0; i < places.size(); ++i)
        cameras.push_back(cameraFrom(list[i], places[i]));
    return cameras;
}

const ListedCamera& cameraNamed(std::span<const ListedCamera> cameras, const std::string& name)
{
    if (name.empty())
        return cameras.front();
    const auto fits = [&](const ListedCamera& camera) {
        return name == std::to_string(camera.nIndex) || name == camera.place.port || isBusAddress(name, camera.place) ||
               (camera.known == Known::read && name == camera.szSerialNumber);
    };
    const auto found = std::ranges::find_if(cameras, fits);
    if (found == cameras.end())
        throw Failure(kNoCamera, "no camera has the index, serial number, port or BUS:ADDRESS " + name);
    if (std::any_of(found + 1, cameras.end(), fits))
        throw Failure(kUsage, "several cameras have the serial number " + name + "; choose by port");
    return *found;
}

std::string lastingNameOf(std::span<const ListedCamera> cameras, const ListedCamera& camera)
{
    const auto hasItsSerial = [&](const ListedCamera& other) {
        return other.known == Known::read && strcmp(other.szSerialNumber, camera.szSerialNumber) == 0;
    };
    const bool isNamed = camera.known == Known::read && std::ranges::count_if(cameras, hasItsSerial) == 1;
    return isNamed ? camera.szSerialNumber : camera.place.port;
}

void loadAlone(std::span<const ListedCamera> cameras, const ListedCamera& camera)
{
    unsigned char image[VQD_IMAGE_BYTES];
    if (cameras.size() == 1)
        return;
    if (vqdEEPROM_ParameterData_Load(camera.nIndex, image) != 1)
        failOn(camera, "the camera's parameters could not be loaded");
    if (camera.known == Known::read && !std::equal(camera.eeprom.begin(), camera.eeprom.end(), image))
        failOn(camera, "the EEPROM of " + nameOf(camera) + " reads differently the second time");
}
