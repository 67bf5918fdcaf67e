// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Which processes hear of USB devices, by the kernel's list of netlink sockets.
#include <gtest/gtest.h>

#include "tools/vqd/udev_events.h"

namespace
{

TEST(UdevEvents, ReachOnlyWhereUdevdOrTheKernelIsHeard)
{
    const std::string heading =
        "sk               Eth Pid        Groups   Rmem     Wmem     Dump  Locks    Drops    Inode\n";
    const auto socket = [](int protocol, const char* groups, int inode) {
        return "00000000ec0516bb " + std::to_string(protocol) + "  812        " + groups +
               " 0        0        0     2        0        " + std::to_string(inode) + "       \n";
    };
    const std::string udevd = socket(15, "00000001", 70), route = socket(0, "00000003", 7);
    const struct {
        const char* what;
        std::string table;
        bool reach;
    } cases[] = {
        {"a host: libusb hears udevd", udevd + socket(15, "00000002", 7), true},
        {"a container: udevd is in another namespace", socket(15, "00000002", 7), false},
        {"another program's libusb is no udevd", socket(15, "00000002", 71) + socket(15, "00000002", 7), false},
        {"no /run/udev: libusb joins no group", udevd + socket(15, "00000000", 7), false},
        {"a libusb without udev hears the kernel", socket(15, "00000001", 7), true},
        {"groups of another protocol", udevd + route, false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(eventsReach(heading + c.table, {5, 7}), c.reach) << c.what;
}

} // namespace
