// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The doctor's look at the bus and at each camera as the kernel shows them.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <grp.h>
#include <map>
#include <sys/stat.h>
#include <unistd.h>

#include "VQD_API.h"
#include "host/formatted.h"

#include "doctor.h"
#include "udev_events.h"

namespace
{

constexpr double kHighSpeed = 480; // Mbit/s

constexpr char kRuleFile[] = "/etc/udev/rules.d/70-vqd.rules";
constexpr char kRule[] = R"(SUBSYSTEM=="usb", ATTR{idVendor}=="03a4", MODE="0660", GROUP="plugdev", TAG+="uaccess")";

void addDenied(Findings& findings, const UsbCamera& camera)
{
    struct stat status {
    };
    const bool known = stat(camera.node.c_str(), &status) == 0;
    const group* const owner = known ? getgrgid(status.st_gid) : nullptr;
    std::string text = camera.node + " may not be opened by this user";
    if (known)
        text += formatted(": group %s, mode %04o", owner != nullptr ? owner->gr_name : "?",
                          unsigned{status.st_mode & 07777});
    // A group other than root's that has access was given it for this purpose.
    if (owner != nullptr && status.st_gid != 0 && (status.st_mode & 060) == 060)
        return findings.add(Level::problem, camera.port, text,
                            formatted("sudo adduser \"$USER\" %s\nThen log out and in again.", owner->gr_name));
    findings.add(
        Level::problem, camera.port, text,
        formatted("Put this line into %s:\n%s\n"
                  "Then: sudo udevadm control --reload && sudo udevadm trigger\n"
                  "sudo adduser \"$USER\" plugdev, and log out and in again. At the machine's own desktop this "
                  "is not needed.",
                  kRuleFile, kRule));
}

} // namespace

void findPresence(Findings& findings, const std::vector<UsbCamera>& cameras)
{
    if (!hasUsb())
        return findings.add(Level::problem, "USB", "the kernel shows no USB devices in /sys/bus/usb/devices",
                            "In a container or virtual machine: pass USB and /sys through to it.");
    if (cameras.empty())
        return findings.add(Level::problem, "USB", "no camera is on the bus",
                            "Check cable, power and port; \"lsusb -d 03a4:\" and \"dmesg\" show what the kernel sees.");
    if (cameras.size() > VQD_MAX_DEVICES)
        findings.add(Level::problem, "USB", formatted("%zu cameras are attached", cameras.size()),
                     formatted("The library takes %d: unplug some.", VQD_MAX_DEVICES));
    for (const UsbCamera& camera : cameras)
        findings.add(Level::ok, camera.port,
                     formatted("%s, USB %s, bus %d address %d", camera.product.c_str(), camera.ids.c_str(), camera.bus,
                               camera.address));
}

// A virtual bus brings its own events. Two cases go unnoticed: a udevd that hangs, and a user namespace of this process
// that keeps the kernel's events from a libusb without udev.
void findEvents(Findings& findings)
{
    if (!hasUsb() || getenv("UMOCKDEV_DIR") != nullptr)
        return;
    if (eventsReachThisProcess())
        return findings.add(Level::ok, "udev", "its events reach this process");
    findings.add(Level::warning, "udev",
                 "no udev events reach this process, so a running program does not learn that a camera was plugged in "
                 "again",
                 "In a container: give it the host's network (--network=host) and mount /run/udev, read-only.\n"
                 "Elsewhere: start udevd (package udev).");
}

bool findAccess(Findings& findings, const UsbCamera& camera)
{
    if (access(camera.node.c_str(), R_OK | W_OK) != 0) {
        if (errno == EACCES || errno == EPERM)
            addDenied(findings, camera);
        else
            findings.add(
                Level::problem, camera.port, camera.node + ": " + strerror(errno),
                "In a container: pass /dev/bus/usb through to it. Elsewhere: unplug the camera and plug it in again.");
        return false;
    }
    const std::vector<Holder> holders = holdersOf(camera.node);
    for (const Holder& holder : holders)
        findings.add(Level::problem, camera.port,
                     formatted("%s (process %d) has %s open", holder.name.c_str(), holder.process, camera.node.c_str()),
                     "Only one program at a time can use a camera: end that one.");
    if (holders.empty())
        findings.add(Level::ok, camera.port, camera.node + " can be opened, and no other program of yours has it open");
    return true;
}

void findDriver(Findings& findings, const UsbCamera& camera)
{
    // "usbfs" stands for a program that uses libusb.
    if (camera.driver == "usbfs" && holdersOf(camera.node).empty())
        findings.add(Level::problem, camera.port, "a program of another user has claimed the camera",
                     "\"sudo fuser -v " + camera.node + "\" names it; end it.");
    else if (!camera.driver.empty() && camera.driver != "usbfs")
        findings.add(Level::problem, camera.port,
                     "the kernel driver " + camera.driver + " holds the camera's interface",
                     "echo " + camera.port + ":1.0 | sudo tee /sys/bus/usb/drivers/" + camera.driver + "/unbind");
    else
        findings.add(Level::ok, camera.port, "no kernel driver holds the camera's interface");
}

void findLink(Findings& findings, const UsbCamera& camera)
{
    const std::string hub = hubOf(camera.port);
    const bool direct = hub.starts_with("usb");
    const std::string hubName = usbAttribute(hub, "product"), hubSpeed = usbAttribute(hub, "speed");
    const std::string text = formatted("%g Mbit/s, ", camera.megabits) +
                             (direct ? "at a port of the machine" : "behind the hub " + hub) +
                             (hubName.empty() ? "" : " (" + hubName + ")");
    if (camera.megabits >= kHighSpeed)
        return findings.add(Level::ok, camera.port, text);
    const bool slowHub = !direct && atof(hubSpeed.c_str()) < kHighSpeed;
    findings.add(Level::problem, camera.port, text + ": frames need 480 Mbit/s",
                 slowHub ? "The hub is slow: plug the camera into the machine or into a USB 2.0 or 3.0 hub."
                         : "Use another cable (short, for data) and another port.");
}

void findBandwidth(Findings& findings, const std::vector<UsbCamera>& cameras)
{
    constexpr int kMostOnABus = 3; // 9.2 MB/s each at 30 frames a second; a 480 Mbit/s bus carries about 35 MB/s
    std::map<int, int> camerasOn;
    for (const UsbCamera& camera : cameras)
        if (camera.megabits <= kHighSpeed)
            ++camerasOn[camera.bus];
    for (const auto& [bus, count] : camerasOn)
        if (count > kMostOnABus)
            findings.add(
                Level::warning, formatted("bus %d", bus),
                formatted("%d cameras share 480 Mbit/s, which is enough for %d at full rate", count, kMostOnABus),
                "Spread them over several host controllers, or lower their rate with \"vqd set fps-delay=...\".");
}

void findMemory(Findings& findings, const std::vector<UsbCamera>& cameras)
{
    const std::string limit = firstLine(kUsbMemoryLimit);
    if (limit.empty() || cameras.empty())
        return;
    const int megabytes = atoi(limit.c_str());
    const int wanted = static_cast<int>(cameras.size()); // a frame in transfer takes less than 1 MB
    if (megabytes == 0 || megabytes > wanted)
        return findings.add(Level::ok, "usbfs memory",
                            megabytes == 0 ? "no limit" : formatted("%d MB, cameras: %d", megabytes, wanted));
    findings.add(Level::warning, "usbfs memory", formatted("%d MB is little, cameras: %d", megabytes, wanted),
                 kMoreUsbMemory);
}
