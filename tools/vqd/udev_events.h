// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Whether this process learns of USB devices that are plugged in and out, as libusb does.
#pragma once

#include <cstdint>
#include <set>
#include <string>

// `table` is the content of /proc/net/netlink, which lists the sockets of this network namespace, while libusb is
// running. `own` are the inodes of this process's sockets. libusb listens either to the kernel or to udevd. udevd
// listens to the kernel, and can only be heard within its own namespace.
bool eventsReach(const std::string& table, const std::set<uint64_t>& own);

// The same for this process.
bool eventsReachThisProcess();
