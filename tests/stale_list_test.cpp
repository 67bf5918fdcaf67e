// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Where no udev events reach the process, a context's device list stays as it was when the context started. sysfs still
// shows what is attached, and so does a fresh context.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>

#include "support/library_test.h"

namespace
{

namespace fs = std::filesystem;

class StaleList : public LibraryTest
{
protected:
    void SetUp() override
    {
        char name[] = "/tmp/vqd-stale-XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        usb.systemRoot = name;
        fs::create_directories(usb.systemRoot + "/sys/bus/usb/devices");
        fs::create_directories(usb.systemRoot + "/dev/bus/usb/001");
        usb.frozenLists = true;
    }

    void TearDown() override
    {
        LibraryTest::TearDown();
        fs::remove_all(usb.systemRoot);
    }

    // Shows the camera of a port in sysfs, and a node to open once udev has finished with it.
    void showInSysfs(size_t port, bool withNode = true)
    {
        const std::string device = usb.systemRoot + "/sys/bus/usb/devices/1-" + std::to_string(port + 1);
        const int address = usb.address(port);
        fs::create_directories(device);
        const auto write = [&](const char* attribute, const std::string& value) {
            std::ofstream(device + "/" + attribute) << value << "\n";
        };
        write("idVendor", "03a4");
        write("idProduct", "871a");
        write("busnum", "1");
        write("devnum", std::to_string(address));
        char node[16];
        snprintf(node, sizeof node, "/%03d", address);
        if (withNode)
            std::ofstream(usb.systemRoot + "/dev/bus/usb/001" + node);
    }

    void plugListed(int cameras)
    {
        for (int i = 0; i < cameras; ++i) {
            sim::Config config;
            config.serial.back() = static_cast<uint8_t>(i + 1);
            showInSysfs(usb.plug(config));
        }
        ASSERT_EQ(list(), cameras);
    }

    void comeBack(size_t port)
    {
        usb.unplug(port);
        usb.replug(port);
        showInSysfs(port);
    }

    static size_t occurrences(const std::string& text, const std::string& word)
    {
        size_t count = 0;
        for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1))
            ++count;
        return count;
    }

    // Nothing is left after the last close.
    void closeAll(int cameras)
    {
        printed([&] {
            for (int n = 0; n < cameras; ++n)
                vqdDeviceClose(n);
        });
        EXPECT_EQ(usb.contextUses + usb.furtherContexts + usb.openHandles() + usb.listsHeld, 0);
    }
};

TEST_F(StaleList, TheOnlyCameraIsFoundThroughTheDefaultContextStartedAgain)
{
    plugListed(1);
    comeBack(0);
    printed([] { EXPECT_EQ(vqdDeviceReOpen(0), 1); });
    const std::string conversation = usb.conversation();
    EXPECT_EQ(occurrences(conversation, "list, open 2"), 9u) << conversation; // the tenth search is the proof
    EXPECT_NE(conversation.find("list, exit, init, list, open 3, reset"), std::string::npos) << conversation;
    EXPECT_EQ(usb.furtherContexts, 0);
    closeAll(1);
}

TEST_F(StaleList, OneOfTwoIsFoundThroughASecondContextAndTheOtherIsNotTouched)
{
    plugListed(2);
    for (int round = 0; round < 2; ++round) {
        comeBack(1);
        printed([] { EXPECT_EQ(vqdDeviceReOpen(1), 1); });
        EXPECT_EQ(occurrences(usb.conversation(), "init another"), 1u);
        EXPECT_EQ(usb.furtherContexts, 1); // the previous one ended with its handle
        EXPECT_EQ(usb.contextUses, 1);
    }
    comeBack(0);
    printed([] { EXPECT_EQ(vqdDeviceReOpen(0), 1); });
    EXPECT_EQ(usb.contextUses, 0); // nothing came from the default context any more
    closeAll(2);
}

TEST_F(StaleList, ALateCameraIsListedOnceItsNodeIsReady)
{
    plugListed(1);
    showInSysfs(usb.plug(), false);
    EXPECT_EQ(list(), 1);
    showInSysfs(1);
    EXPECT_EQ(list(), 2);
    EXPECT_EQ(usb.furtherContexts, 1);
    EXPECT_EQ(usb.contextUses, 0);
    EXPECT_EQ(list(), 2);
    closeAll(2);

    showInSysfs(usb.plug());
    EXPECT_EQ(list(), 3); // a context that starts is fresh anyway
    EXPECT_EQ(usb.furtherContexts, 0);
    closeAll(3);
}

TEST_F(StaleList, AnApplicationThatHoldsTheDefaultContextKeepsIt)
{
    libusb_init(nullptr);
    showInSysfs(usb.plug());
    EXPECT_EQ(list(), 1);
    EXPECT_EQ(usb.furtherContexts, 1);
    printed([] { vqdDeviceClose(0); });
    EXPECT_EQ(usb.furtherContexts, 0);
    EXPECT_EQ(usb.contextUses, 1); // the library's use ended before the close, which ends none in its place
    printed([] { vqdDeviceClose(0); });
    EXPECT_EQ(usb.contextUses, 0); // a second close ends a use again
}

// A fresh context whose camera cannot be opened has no handle that would end it.
TEST_F(StaleList, AFreshContextWithoutAHandleEndsWithTheNextListing)
{
    libusb_init(nullptr);
    for (int i = 0; i < 2; ++i)
        showInSysfs(usb.plug());
    usb.fail("open", -3);
    EXPECT_EQ(list(), -2);
    EXPECT_EQ(usb.furtherContexts, 1);
    EXPECT_EQ(list(), 2);
    EXPECT_EQ(usb.furtherContexts, 1);

    usb.fail("open", -3, 2); // number 0 has a handle, and the device list stays held
    EXPECT_EQ(list(), -2);
    EXPECT_EQ(usb.listsHeld, 1);
    printed([] { UnInitialize_vqdapi(0, 0); }); // ends the context of this listing, and its list before
    printed([] { UnInitialize_vqdapi(1, 0); });
    EXPECT_EQ(usb.furtherContexts, 0);
    EXPECT_EQ(usb.listsHeld, 0);
}

// In any order of events, with and without an application that holds the default context, every context that was begun
// is ended once.
TEST_F(StaleList, EveryContextIsEndedOnce)
{
    std::mt19937 random{20261124};
    const auto oneOf = [&](size_t count) { return random() % count; };
    constexpr size_t kCameras = 3;
    for (size_t port = 0; port < kCameras; ++port) {
        sim::Config config;
        config.product = "VQD-RS110"; // without tables to load
        showInSysfs(usb.plug(config));
    }
    for (int round = 0; round < 100; ++round) {
        const int held = round % 2;
        if (held == 1)
            libusb_init(nullptr);
        printed([&] {
            vqdGetDeviceList(devices.data(), &count);
            for (int step = 0; step < 8; ++step) {
                const auto n = static_cast<int>(oneOf(kCameras));
                m_nReopenTime = 512; // twelve searches: enough to prove a list stale
                switch (oneOf(8)) {
                case 0:
                    vqdGetDeviceList(devices.data(), &count);
                    break;
                case 1:
                    usb.fail("open", -3, 1 + random() % 2);
                    break;
                case 2:
                    UnInitialize_vqdapi(n, 0);
                    break;
                case 3:
                    usb.unplug(oneOf(kCameras)); // sysfs still shows it
                    break;
                case 4:
                case 5:
                    comeBack(oneOf(kCameras));
                    break;
                default:
                    vqdDeviceReOpen(n);
                }
            }
        });
        EXPECT_LE(usb.furtherContexts, usb.openHandles() + 1) << round;
        printed([&] {
            bool closed = false;
            for (int n = 0; n < static_cast<int>(kCameras); ++n)
                if (vqdDeviceIsOpen(n) == 1)
                    closed = vqdDeviceClose(n) == 1;
            if (!closed)
                vqdDeviceClose(0);
        });
        EXPECT_EQ(usb.contextUses, held) << round;
        EXPECT_EQ(usb.furtherContexts + usb.openHandles() + usb.listsHeld, 0) << round;
        if (held == 1)
            libusb_exit(nullptr);
        ASSERT_FALSE(HasFailure());
    }
}

// The list lags behind sysfs by the time that udev needs, which is no reason for another context.
TEST_F(StaleList, AHealthyHostGetsNoSecondContext)
{
    usb.frozenLists = false;
    usb.listDelay = 300'000;
    showInSysfs(usb.plug(), false);
    EXPECT_EQ(list(), -2);
    usb.now += 300'000;
    showInSysfs(0);
    EXPECT_EQ(list(), 1);
    comeBack(0);
    usb.conversation();
    printed([] { EXPECT_EQ(vqdDeviceReOpen(0), 1); });
    EXPECT_EQ(occurrences(usb.conversation(), "init"), 0u);
    closeAll(1);
}

TEST_F(StaleList, ACameraThatNoContextListsCausesFreshOnesEveryTenSearches)
{
    plugListed(1);
    showInSysfs(usb.plug());
    usb.unplug(1);
    usb.unplug(0);
    printed([] { EXPECT_EQ(vqdDeviceReOpen(0), -3); });
    const std::string conversation = usb.conversation();
    EXPECT_EQ(occurrences(conversation, "init another"), 10u) << conversation;
    EXPECT_EQ(occurrences(conversation, "init"), 20u) << conversation; // the default context again, then a second one
    closeAll(1);
}

TEST_F(StaleList, WithoutSysfsNothingChanges)
{
    plugListed(1);
    comeBack(0);
    fs::remove_all(usb.systemRoot);
    printed([] { EXPECT_EQ(vqdDeviceReOpen(0), -3); });
    const std::string conversation = usb.conversation();
    EXPECT_EQ(occurrences(conversation, "list, open 2"), 101u);
    EXPECT_EQ(occurrences(conversation, "init") + occurrences(conversation, "exit"), 0u);
    usb.frozenLists = false;
}

} // namespace
