// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Cameras as the kernel shows them in sysfs, even if this user cannot open them.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

struct UsbCamera {
    std::string port; // the name of the place in sysfs: "1-2.3" is port 3 of the hub at port 2 of bus 1
    std::string product, ids;
    int bus, address;
    double megabits; // per second
    std::string node;
    std::string driver; // bound to the interface; empty when there is none
};

// False when the kernel shows no USB devices at all.
bool hasUsb();

std::vector<UsbCamera> attachedCameras();

// Where libusb opens a device.
std::string deviceNode(int bus, int address);

// A text from a device's folder in sysfs, without characters that a terminal would act on; empty when there is none.
std::string usbAttribute(const std::string& port, const char* name);

// The hub into which a device is plugged; empty for a root hub.
std::string hubOf(const std::string& port);

// Other processes that have a device node open.
struct Holder {
    pid_t process;
    std::string name;
};
std::vector<Holder> holdersOf(const std::string& node);

// The kernel limits the memory that the transfers of all programs share.
inline constexpr char kUsbMemoryLimit[] = "/sys/module/usbcore/parameters/usbfs_memory_mb";
inline constexpr char kMoreUsbMemory[] = "echo 64 | sudo tee /sys/module/usbcore/parameters/usbfs_memory_mb";

// The first line of any file in sysfs or procfs, made harmless in the same way.
std::string firstLine(const std::string& path);
