// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Cameras as the kernel shows them in sysfs, whether or not they can be opened.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

struct UsbCamera {
    std::string port; // sysfs's name of the place, such as "1-2.3": port 3 of the hub at port 2 of bus 1
    std::string product, ids;
    int bus, address;
    double megabits; // per second
    std::string node;
    std::string driver; // bound to the interface; empty: none
};

// False when the kernel shows no USB at all.
bool hasUsb();

std::vector<UsbCamera> attachedCameras();

// Where libusb opens a device.
std::string deviceNode(int bus, int address);

// A text of a device's folder in sysfs, without what a terminal would act on; empty when there is none.
std::string usbAttribute(const std::string& port, const char* name);

// The hub that a device is plugged into; empty for a root hub.
std::string hubOf(const std::string& port);

// Other processes that have a device node open.
struct Holder {
    pid_t process;
    std::string name;
};
std::vector<Holder> holdersOf(const std::string& node);

// Transfers of all programs share one amount of memory of the kernel's.
inline constexpr char kUsbMemoryLimit[] = "/sys/module/usbcore/parameters/usbfs_memory_mb";
inline constexpr char kMoreUsbMemory[] = "echo 64 | sudo tee /sys/module/usbcore/parameters/usbfs_memory_mb";

// Of any file in sysfs or procfs: its first line, as usbAttribute().
std::string firstLine(const std::string& path);
