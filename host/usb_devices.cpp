// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Reads sysfs and /proc. Folders are read with libc's functions, because a virtual bus redirects those.
#include "host/usb_devices.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <iterator>
#include <memory>
#include <unistd.h>

#include "device/base/usb_ids.h"

#include "host/formatted.h"

namespace
{

constexpr char kDevices[] = "/sys/bus/usb/devices/";

std::vector<std::string> namesIn(const std::string& folder)
{
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(opendir(folder.c_str()), closedir);
    while (const dirent* entry = stream ? readdir(stream.get()) : nullptr)
        if (entry->d_name[0] != '.')
            names.emplace_back(entry->d_name);
    std::sort(names.begin(), names.end());
    return names;
}

std::string linkTarget(const std::string& path)
{
    char target[PATH_MAX];
    const ssize_t length = readlink(path.c_str(), target, sizeof target);
    return length < 0 ? std::string() : std::string(target, static_cast<size_t>(length));
}

bool isOfInterest(const std::string& vendor, const std::string& product)
{
    const auto number = [](const std::string& digits) { return strtoul(digits.c_str(), nullptr, 16); };
    return std::any_of(std::begin(kUsbIds), std::end(kUsbIds),
                       [&](const UsbId& id) { return id.vendor == number(vendor) && id.product == number(product); });
}

pid_t numberIn(const char* variable)
{
    const char* text = getenv(variable);
    return text != nullptr ? atoi(text) : 0;
}

} // namespace

std::string firstLine(const std::string& path)
{
    constexpr size_t kMost = 200;
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    line.resize(std::min(line.size(), kMost));
    for (char& c : line)
        if (c < ' ' || c > '~')
            c = '?';
    return line;
}

bool hasUsb()
{
    return access(kDevices, R_OK | X_OK) == 0;
}

std::string usbAttribute(const std::string& port, const char* name)
{
    return firstLine(kDevices + port + "/" + name);
}

std::string deviceNode(int bus, int address)
{
    return formatted("/dev/bus/usb/%03d/%03d", bus, address);
}

std::vector<UsbCamera> attachedCameras()
{
    std::vector<UsbCamera> cameras;
    for (const std::string& port : namesIn(kDevices)) {
        const std::string vendor = usbAttribute(port, "idVendor");
        const std::string product = usbAttribute(port, "idProduct");
        if (!isOfInterest(vendor, product))
            continue;
        UsbCamera camera;
        camera.port = port;
        camera.product = usbAttribute(port, "product");
        camera.ids = vendor + ":" + product;
        camera.bus = atoi(usbAttribute(port, "busnum").c_str());
        camera.address = atoi(usbAttribute(port, "devnum").c_str());
        camera.megabits = atof(usbAttribute(port, "speed").c_str());
        camera.node = deviceNode(camera.bus, camera.address);
        // Folders of interfaces are "PORT:CONFIGURATION.INTERFACE".
        const std::string driver = linkTarget(kDevices + port + "/" + port + ":1.0/driver");
        camera.driver = driver.substr(driver.rfind('/') + 1);
        cameras.push_back(std::move(camera));
    }
    return cameras;
}

std::string hubOf(const std::string& port)
{
    const size_t dot = port.rfind('.'), dash = port.find('-');
    if (dash == std::string::npos)
        return {};
    return dot != std::string::npos ? port.substr(0, dot) : "usb" + port.substr(0, dash);
}

std::vector<Holder> holdersOf(const std::string& node)
{
    // On a virtual bus the nodes are files in its folder, and the process that made the bus has them open.
    const char* const virtualBus = getenv("UMOCKDEV_DIR");
    const std::string elsewhere = (virtualBus != nullptr ? virtualBus : "") + node;
    const pid_t simulator = numberIn("VQD_SIM_PID");

    std::vector<Holder> holders;
    for (const std::string& name : namesIn("/proc")) {
        const pid_t process = atoi(name.c_str());
        if (process <= 0 || process == getpid() || process == simulator)
            continue;
        const std::string folder = "/proc/" + name;
        const std::vector<std::string> files = namesIn(folder + "/fd");
        if (std::any_of(files.begin(), files.end(), [&](const std::string& file) {
                const std::string target = linkTarget(folder + "/fd/" + file);
                return target == node || target == elsewhere;
            }))
            holders.push_back({process, firstLine(folder + "/comm")});
    }
    return holders;
}
