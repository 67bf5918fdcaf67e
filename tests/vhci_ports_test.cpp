// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The kernel's ports for virtual devices, as files of a folder that stands for sysfs.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <unistd.h>

#include "vhci_ports.h"

using namespace sim;

namespace
{

std::string newFolder()
{
    char name[] = "/tmp/vhci-XXXXXX";
    return mkdtemp(name);
}

// Two controllers, the first with two ports of USB 2, the second with one.
class VhciPortsTest : public testing::Test
{
protected:
    VhciPortsTest()
    {
        write("0/usb2/speed", "5000\n");
        write("0/usb2/busnum", "2\n");
        write("0/usb1/speed", "480\n");
        write("0/usb1/busnum", "1\n");
        write("1/usb3/speed", "480\n");
        write("1/usb3/busnum", "3\n");
        write("0/attach", "");
        setStates("004", "004", "004");
    }
    ~VhciPortsTest() override { std::filesystem::remove_all(root); }

    void write(const std::string& file, const std::string& text) const
    {
        const std::filesystem::path path = platform + file;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path) << text;
    }
    void setStates(const std::string& port0, const std::string& port1, const std::string& port4) const
    {
        const std::string head = "hub port sta spd dev      sockfd local_busid\n", tail = " 000 00000000 000000 0-0\n";
        const std::string superSpeed = "ss  0002 004" + tail;
        write("0/status", head + "hs  0000 " + port0 + tail + "hs  0001 " + port1 + tail + superSpeed);
        write("0/status.1", head + "hs  0004 " + port4 + tail + superSpeed);
    }
    std::string attached() const
    {
        std::string line;
        std::getline(std::ifstream(platform + "0/attach"), line);
        return line;
    }

    const std::string root = newFolder(), platform = root + "/devices/platform/vhci_hcd.";
};

TEST_F(VhciPortsTest, ACameraGetsThePortThatItAsksForOrTheNextFreeOne)
{
    const VhciPorts ports(root);
    EXPECT_EQ(ports.attach(17, 2, 5).path, platform + "0/usb1/1-2");
    EXPECT_EQ(attached(), "1 17 5 3");
    EXPECT_EQ(ports.attach(17, 9, 5).number, 0u);
    setStates("006", "004", "004");
    write("0/usb1/1-2/devnum", "7\n"); // a dead device that the kernel still has
    EXPECT_EQ(ports.attach(17, 2, 5).path, platform + "1/usb3/3-1");
    EXPECT_EQ(attached(), "4 17 5 3");
    setStates("006", "005", "006");
    try {
        ports.attach(17, 1, 5);
        ADD_FAILURE() << "there is no free port";
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string(error.what()).find("no free USB 2 port"), std::string::npos) << error.what();
    }
}

TEST_F(VhciPortsTest, ACameraIsThereOnceItIsConfiguredAndGoneOnceTheKernelHasDroppedIt)
{
    const VhciPorts ports(root);
    const VhciPort port = ports.attach(17, 1, 5);
    EXPECT_TRUE(ports.dropped(port));
    setStates("006", "004", "004");
    write("0/usb1/1-1/busnum", "1\n");
    write("0/usb1/1-1/devnum", "12\n");
    EXPECT_FALSE(ports.address(port));
    write("0/usb1/1-1/1-1:1.0/bInterfaceNumber", "00\n");
    EXPECT_EQ(ports.address(port), (UsbAddress{1, 12}));
    EXPECT_FALSE(ports.dropped(port));
    setStates("004", "004", "004");
    EXPECT_FALSE(ports.dropped(port)); // the port is free before the device is gone
    std::filesystem::remove_all(port.path);
    EXPECT_TRUE(ports.dropped(port));
}

TEST(VhciPorts, WithoutTheModuleTheErrorNamesTheCommandThatLoadsIt)
{
    try {
        const VhciPorts ports("/nonexistent");
        ADD_FAILURE() << "there is no module";
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string(error.what()).find("sudo modprobe vhci-hcd"), std::string::npos) << error.what();
    }
}

} // namespace
