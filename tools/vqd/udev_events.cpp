// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Which sockets listen to USB events is known from /proc/net/netlink.
#include "udev_events.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include <libusb.h>

bool eventsReach(const std::string& table, const std::set<uint64_t>& own)
{
    constexpr int kUevents = 15; // NETLINK_KOBJECT_UEVENT
    constexpr unsigned kFromKernel = 1, kFromUdevd = 2;
    bool udevd = false, hearsKernel = false, hearsUdevd = false;
    std::istringstream lines(table);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        std::string socket, skipped;
        int protocol = 0, port = 0;
        unsigned groups = 0;
        uint64_t inode = 0;
        fields >> socket >> protocol >> port >> std::hex >> groups >> std::dec;
        for (int i = 0; i < 5; ++i) // Rmem, Wmem, Dump, Locks, Drops
            fields >> skipped;
        if (!(fields >> inode) || protocol != kUevents) // the heading as well
            continue;
        const bool ours = own.contains(inode), kernel = (groups & kFromKernel) != 0;
        udevd = udevd || kernel;
        hearsKernel = hearsKernel || (ours && kernel);
        hearsUdevd = hearsUdevd || (ours && (groups & kFromUdevd) != 0);
    }
    return hearsKernel || (hearsUdevd && udevd);
}

static std::set<uint64_t> ownSockets()
{
    constexpr char kSocket[] = "socket:[";
    std::set<uint64_t> inodes;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", ignored)) {
        const std::string target = std::filesystem::read_symlink(entry.path(), ignored);
        if (target.starts_with(kSocket))
            inodes.insert(std::stoull(target.substr(sizeof kSocket - 1)));
    }
    return inodes;
}

bool eventsReachThisProcess()
{
    libusb_context* context = nullptr;
    if (libusb_init(&context) != 0)
        return true; // another finding says so
    std::ifstream file("/proc/net/netlink");
    const std::string table((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    const bool reach = table.empty() || eventsReach(table, ownSockets());
    libusb_exit(context);
    return reach;
}
