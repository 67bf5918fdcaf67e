// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Plugs virtual cameras into the unmodified libusb of any program, without root and without a kernel module. The
// process that owns a bus, and every program that shall see it, run under libumockdev-preload.so.0.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "camera.h"

namespace sim
{

struct BusOptions {
    uint32_t capabilities = 0x1f; // what usbfs announces; 0x1f as xHCI does, 0x13 splits transfers into 16 KiB
    double timeScale = 1;         // the cameras' clock runs this much faster than the wall clock
};

class Bus
{
public:
    explicit Bus(const BusOptions& options = {});
    ~Bus(); // every client must be gone, and its libusb contexts ended
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    // Plugs a camera in; returns its index. A root hub is always there. The port of that hub tells where libusb lists
    // the camera: from the last name, read as a text, to the first. 0: the index plus 1.
    size_t add(Config config, unsigned port = 0);

    // Return when the camera is off the bus and its transfers have failed, or when it is there. A camera that comes
    // back, by itself or not, gets a new address.
    void unplug(size_t index, TimeUs backAfter = kNever);
    void plug(size_t index);

    // Runs `look` with the camera while no transfer runs. `look` must not call the bus.
    void withCamera(size_t index, const std::function<void(Camera&)>& look);

    // The camera's present USB address on bus 1, 0 while unplugged.
    unsigned address(size_t index);

    struct State; // the implementation's own

private:
    std::unique_ptr<State> m_state;
};

} // namespace sim
