// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Whether this process hears of USB devices that come and go, as libusb does.
#pragma once

#include <cstdint>
#include <set>
#include <string>

// `table`: /proc/net/netlink, which lists the sockets of this network namespace, read while libusb is up; `own`: the
// inodes of this process's sockets. libusb listens either to the kernel itself or to udevd, and udevd, which listens to
// the kernel, is only heard within its own namespace.
bool eventsReach(const std::string& table, const std::set<uint64_t>& own);

// The same for this process.
bool eventsReachThisProcess();
