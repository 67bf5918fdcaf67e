// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Plugs virtual cameras into the unmodified libusb of any program.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "camera.h"

namespace sim
{

struct BusOptions {
    double timeScale = 1; // the cameras' clock runs this much faster than the wall clock

    // Of the mocked bus alone.
    uint32_t capabilities = 0x1f;    // what usbfs announces; 0x1f as xHCI does, 0x13 splits transfers into 16 KiB
    bool transfersFailFirst = false; // at an unplug, as at a kernel: libusb lists the dead device a moment longer
};

// Where libusb finds a device; zeros while it is unplugged.
struct UsbAddress {
    unsigned bus = 0, device = 0;
    bool operator==(const UsbAddress&) const = default;
};

class Bus
{
public:
    Bus() = default;
    virtual ~Bus() = default; // every client must be gone, and its libusb contexts ended
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    // Plugs a camera in; returns its index. The port of the root hub tells where libusb lists the camera: from the last
    // name, read as a text, to the first. 0: the index plus 1.
    virtual size_t add(Config config, unsigned port = 0) = 0;

    // Return when the camera is off the bus and its transfers have failed, or when it is there. A camera that comes
    // back, by itself or not, gets a new address.
    virtual void unplug(size_t index, TimeUs backAfter = kNever) = 0;
    virtual void plug(size_t index) = 0;

    // Runs `look` with the camera while no transfer runs. `look` must not call the bus.
    virtual void withCamera(size_t index, const std::function<void(Camera&)>& look) = 0;

    virtual UsbAddress address(size_t index) = 0;
};

// A mocked bus, without root and without a kernel module. The process that owns it, and every program that shall see
// it, run under libumockdev-preload.so.0.
std::unique_ptr<Bus> makeMockBus(const BusOptions& options = {});

// The running kernel, for all its programs: through the kernel module vhci-hcd, as root. Destroying the bus unplugs its
// cameras. The host never runs out of memory here: faults of that kind are refused.
std::unique_ptr<Bus> makeKernelBus(const BusOptions& options = {});

} // namespace sim
