// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Short visits to the bus: each makes a libusb context of its own, so the library's context is not touched.
#include "host/bus_view.h"

#include <functional>

#include <libusb.h>

#include "config/param_image.h"
#include "usb/vendor_channel.h"

static void forEachCamera(const std::function<void(libusb_device*)>& visit)
{
    libusb_context* context = nullptr;
    libusb_device** devices = nullptr;
    if (libusb_init(&context) != 0)
        return;
    const ssize_t count = libusb_get_device_list(context, &devices);
    for (ssize_t i = 0; i < count; ++i)
        if (device_is_of_interest(devices[i]))
            visit(devices[i]);
    if (count >= 0)
        libusb_free_device_list(devices, 1);
    libusb_exit(context);
}

static Place placeOf(libusb_device* device)
{
    constexpr int kMostPorts = 7; // USB allows no longer chain of hubs
    uint8_t ports[kMostPorts];
    const int count = libusb_get_port_numbers(device, ports, kMostPorts);
    Place place{libusb_get_bus_number(device), libusb_get_device_address(device), {}};
    for (int i = 0; i < count; ++i)
        place.port += (i == 0 ? std::to_string(place.bus) + '-' : ".") + std::to_string(ports[i]);
    return place;
}

bool EepromRead::isSigned() const
{
    return bytes[kSignature] == kSignatureValue;
}

EepromRead readEeprom(libusb_device_handle* handle)
{
    EepromRead read;
    read.moved = libusb_control_transfer(handle, kVendorIn, kRequestReadEeprom, kEepromRegion, 0, read.bytes.data(),
                                         VQD_EEPROM_BYTES, kRequestTimeoutMs);
    return read;
}

std::vector<Place> cameraPlaces()
{
    std::vector<Place> places;
    forEachCamera([&](libusb_device* device) { places.push_back(placeOf(device)); });
    return places;
}

EepromRead readEeprom(const Place& place)
{
    EepromRead read{LIBUSB_ERROR_NO_DEVICE, {}};
    forEachCamera([&](libusb_device* device) {
        libusb_device_handle* handle = nullptr;
        if (placeOf(device) == place && (read.moved = libusb_open(device, &handle)) == 0) {
            read = readEeprom(handle);
            libusb_close(handle);
        }
    });
    return read;
}
