// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The USB 2 ports of the kernel module vhci-hcd, which carry devices that speak USB/IP over a socket: its files in
// sysfs.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "bus.h"

namespace sim
{

struct VhciPort {
    unsigned number = 0; // as vhci-hcd counts, over all its controllers
    std::string path;    // in sysfs, of a device at this port
};

class VhciPorts
{
public:
    // Failures are std::runtime_error and say what to do. The first: the module is not loaded.
    explicit VhciPorts(std::string sysfs = "/sys");

    // Gives the host's end of a connection to a free port: at the hub's own number if that is free, else at the next
    // one. `device` is any number of the device's own.
    VhciPort attach(int socket, unsigned hubPort, unsigned device) const;

    // Of the device at this port, once the kernel has configured it.
    std::optional<UsbAddress> address(const VhciPort& port) const;

    // The kernel has dropped the device whose connection was closed. A port that is attached earlier keeps the dead
    // one.
    bool dropped(const VhciPort& port) const;

private:
    struct Row;
    std::vector<Row> rows() const;

    std::string m_platform;
};

} // namespace sim
