// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Everything about the ports is text: "status" lists those of the first controller, "status.1" those of the second, and
// a line that is written to "attach" plugs in. Documentation/ABI has nothing on them; tools/usb/usbip of the kernel
// does.
#include "vhci_ports.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <unistd.h>

namespace sim
{

static constexpr int kHighSpeed = 3;
static constexpr unsigned kFree = 4; // state of a port

struct VhciPorts::Row {
    VhciPort port;
    unsigned hubPort; // at its own hub, from 1
    bool free;
};

static std::string firstLine(const std::string& path)
{
    std::string line;
    std::getline(std::ifstream(path), line);
    return line;
}

static unsigned numberIn(const std::string& path)
{
    unsigned number = 0;
    std::ifstream(path) >> number;
    return number;
}

// The root hub of USB 2 at a controller has another bus than that of USB 3.
static std::string highSpeedHub(const std::string& controller)
{
    std::error_code none;
    for (const auto& entry : std::filesystem::directory_iterator(controller, none))
        if (entry.path().filename().string().starts_with("usb") && firstLine(entry.path() / "speed") == "480")
            return entry.path();
    return {};
}

VhciPorts::VhciPorts(std::string sysfs) : m_platform(std::move(sysfs) + "/devices/platform/vhci_hcd.")
{
    if (access((m_platform + "0/status").c_str(), F_OK) != 0)
        throw std::runtime_error("the kernel module vhci-hcd is not loaded; sudo modprobe vhci-hcd loads it");
}

// Lines are "hs  0003 006 003 00010002 000005 1-4": hub, port, state and four more. Those of USB 3 begin with "ss".
std::vector<VhciPorts::Row> VhciPorts::rows() const
{
    std::vector<Row> rows;
    for (unsigned controller = 0;; ++controller) {
        const std::string number = std::to_string(controller);
        std::ifstream status(m_platform + "0/status" + (controller == 0 ? "" : '.' + number));
        const std::string hub = highSpeedHub(m_platform + number);
        if (!status || hub.empty())
            return rows;
        const std::string bus = std::to_string(numberIn(hub + "/busnum"));
        unsigned hubPort = 0;
        for (std::string line; std::getline(status, line);) {
            unsigned port = 0, state = 0;
            if (sscanf(line.c_str(), "hs %u %u", &port, &state) != 2)
                continue;
            ++hubPort;
            std::string path = hub + "/" + bus + "-" + std::to_string(hubPort);
            rows.push_back({{port, std::move(path)}, hubPort, state == kFree});
        }
    }
}

// Returns 0 or an errno.
static int writeTo(const std::string& path, const std::string& line)
{
    const int file = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (file < 0)
        return errno;
    const int error = write(file, line.data(), line.size()) < 0 ? errno : 0;
    close(file);
    return error;
}

VhciPort VhciPorts::attach(int socket, unsigned hubPort, unsigned device) const
{
    std::vector<Row> candidates = rows();
    std::erase_if(candidates, [](const Row& row) { return !row.free || access(row.port.path.c_str(), F_OK) == 0; });
    std::stable_partition(candidates.begin(), candidates.end(), [&](const Row& row) { return row.hubPort == hubPort; });
    for (const Row& row : candidates) {
        const int error =
            writeTo(m_platform + "0/attach", std::to_string(row.port.number) + " " + std::to_string(socket) + " " +
                                                 std::to_string(device) + " " + std::to_string(kHighSpeed));
        if (error == 0)
            return row.port;
        if (error == EACCES)
            throw std::runtime_error("only root may plug a camera into the kernel");
        if (error != EBUSY) // else somebody was faster
            throw std::runtime_error(std::string("the kernel refuses the camera: ") + strerror(error));
    }
    throw std::runtime_error("the kernel module vhci-hcd has no free USB 2 port for another camera");
}

// The folder of an interface shows that the kernel has configured the device. bConfigurationValue would tell as well,
// but reading it waits for the kernel, which waits for the device's answer: the device may be this very thread.
std::optional<UsbAddress> VhciPorts::address(const VhciPort& port) const
{
    const std::string interface = port.path + port.path.substr(port.path.rfind('/')) + ":1.0";
    const UsbAddress address{numberIn(port.path + "/busnum"), numberIn(port.path + "/devnum")};
    return access(interface.c_str(), F_OK) == 0 && address.device != 0 ? std::optional(address) : std::nullopt;
}

bool VhciPorts::dropped(const VhciPort& port) const
{
    const std::vector<Row> all = rows();
    const bool free =
        std::ranges::any_of(all, [&](const Row& row) { return row.port.number == port.number && row.free; });
    return free && access(port.path.c_str(), F_OK) != 0;
}

} // namespace sim
