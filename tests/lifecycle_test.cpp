// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Complete conversations of open, close, grab start and stop, the read buffer and the image channel.
#include <algorithm>

#include "support/library_test.h"

namespace
{

using Lifecycle = LibraryTest;

TEST_F(Lifecycle, OpenClaimsAndStartsTheReadBuffer)
{
    usb.plug();
    list();
    EXPECT_EQ(printed([] { EXPECT_EQ(vqdDeviceOpen(0), 1); }), "");
    EXPECT_EQ(usb.conversation(), "driver 0, config, claim 0, B2 64, wait 100000, B3 64");
    EXPECT_EQ(m_nDeviceOpen[0], 0);
    EXPECT_NE(configDesc, nullptr);

    EXPECT_EQ(printed([] { EXPECT_EQ(vqdDeviceOpen(0), 1); }), "");
    EXPECT_EQ(usb.configurationsHeld, 1); // the replaced descriptor is freed
}

TEST_F(Lifecycle, AFailedOpenSaysWhyStopsGrabbingAndEmptiesTheNumber)
{
    const std::string stop = "wait 100, " + kImageSent + ", wait 100000, close ";
    const struct {
        const char* call;
        int result;
        unsigned nth;
        const char* printed;
        const char* conversation;
    } cases[] = {
        {"descriptor", -4, 1, "VQD Device not detected\n", ""},
        {"driver", 1, 1, "kernel driver active. Exitting\n", "driver 0, "},
        {"driver", -5, 1, "kernel driver active. Exitting\n", "driver 0, "},
        {"config", -5, 1, "Could not get Config descriptor \n", "driver 0, config, "},
        {"claim", -6, 1, "Error in claiming interface\n", "driver 0, config, claim 0, "},
        {"control", -9, 1, "Error in b2 Control transfer\n", "driver 0, config, claim 0, B2 64 -9, "},
        {"control", -7, 2, "Error in b3 Control transfer\n",
         "driver 0, config, claim 0, B2 64, wait 100000, B3 64 -7, "},
    };
    usb.plug();
    for (const auto& c : cases) {
        list();
        usb.fail(c.call, c.result, c.nth);
        EXPECT_EQ(printed([] { EXPECT_EQ(vqdDeviceOpen(0), 0); }), c.printed);
        EXPECT_EQ(usb.conversation(), c.conversation + stop + "2") << c.printed;
        EXPECT_EQ(usb.openHandles(), 0);
        EXPECT_EQ(usb.configurationsHeld, 0);
        EXPECT_EQ(configDesc, nullptr);
        EXPECT_EQ(m_nDeviceCount, 0);
    }
    EXPECT_EQ(printed([] { EXPECT_EQ(vqdDeviceOpen(0), 0); }), "VQD Device handle false\n");
}

TEST_F(Lifecycle, GrabStartAndStop)
{
    sim::Camera& camera = openCamera();
    EXPECT_EQ(printed([] { EXPECT_EQ(vqdGrabStart(0), 1); }), "");
    EXPECT_EQ(usb.conversation(), kBurst + ", wait 100, " + kImageSent + ", " + kImageSent + ", wait 100000");
    EXPECT_EQ(camera.registers[11], 1);
    EXPECT_TRUE(camera.grabbing());

    EXPECT_EQ(printed([] { EXPECT_EQ(vqdGrabStop(0), 1); }), "");
    EXPECT_EQ(usb.conversation(), "wait 100, " + kImageSent + ", wait 100000");
    EXPECT_EQ(camera.registers[11], 0);
    EXPECT_EQ(stCamParam[0].image[11], 0);
}

TEST_F(Lifecycle, GrabStartIgnoresTheBurstAndReturnsItsSecondImage)
{
    openCamera();
    usb.fail("control", -9, 3); // the burst ends here
    usb.fail("bulk", -7, 1);
    EXPECT_EQ(printed([] { EXPECT_EQ(vqdGrabStart(0), 1); }),
              "Error in b1 Control transfer\nvqdWriteToDevice Bulk transfer Error.\n");
    EXPECT_EQ(usb.conversation(),
              "wait 100000, B1 64, wait 100000, B1 64, wait 100000, B1 64 -9, wait 100, "
              "B1 64, wait 100000, out 512 -7, B1 64, wait 100000, out 512, wait 200000, wait 100000");
    usb.fail("bulk", -7, 2);
    EXPECT_EQ(printed([] { EXPECT_EQ(vqdGrabStart(0), 0); }), "vqdWriteToDevice Bulk transfer Error.\n");
    EXPECT_EQ(stCamParam[0].image[11], 1);
}

TEST_F(Lifecycle, TheImageBecomesTheHostsCopyOnlyOnceItIsSent)
{
    sim::Camera& camera = openCamera();
    std::array<unsigned char, 512> image{};
    image[500] = 9;
    const auto write = [&] { return vqdWriteToDevice(0, image.data()); };

    usb.fail("control", -9);
    EXPECT_EQ(printed([&] { EXPECT_EQ(write(), 0); }), "vqdWriteToDevice Contol transfer Error.\n");
    EXPECT_EQ(usb.conversation(), "B1 64 -9");
    usb.fail("bulk", -1);
    EXPECT_EQ(printed([&] { EXPECT_EQ(write(), 0); }), "vqdWriteToDevice Bulk transfer Error.\n");
    EXPECT_EQ(usb.conversation(), "B1 64, wait 100000, out 512 -1");
    EXPECT_EQ(stCamParam[0].image[500], 0);

    camera.addFault({.kind = sim::Fault::Kind::shortened, .channel = sim::Channel::bulkOut, .bytes = 100});
    EXPECT_EQ(printed([&] { EXPECT_EQ(write(), 1); }), ""); // the library does not look at the count
    EXPECT_EQ(usb.conversation(), kImageSent);
    EXPECT_EQ(stCamParam[0].image[500], 9);
    EXPECT_EQ(write(), 1);
    EXPECT_EQ(camera.registers[500], 9);
}

TEST_F(Lifecycle, ReadBufferRequests)
{
    const struct {
        int (*call)(int);
        const char* failing;
        unsigned nth;
        int result;
        const char *printed, *conversation;
    } cases[] = {
        {vqdReadBufInit, "", 1, 1, "", "wait 100000, B4 64, in 2048, B2 64, wait 100000, B3 64"},
        {vqdReadBufInit, "control", 1, 0, "Error in b4 Control transfer\n", "wait 100000, B4 64 -9"},
        {vqdReadBufInit, "bulk", 1, 0, "Error Read Fifo Data\n", "wait 100000, B4 64, in 2048 -9"},
        {vqdReadBufInit, "control", 2, 0, "Error in b2 Control transfer\n", "wait 100000, B4 64, in 2048, B2 64 -9"},
        {vqdReadBufInit, "control", 3, 0, "Error in b3 Control transfer\n",
         "wait 100000, B4 64, in 2048, B2 64, wait 100000, B3 64 -9"},
        {vqdReadBufReset, "", 1, 64, "", "B2 64"},
        {vqdReadBufReset, "control", 1, 0, "Error in b2 Control transfer\n", "B2 64 -9"},
        {vqdWriteBufInit, "", 1, 64, "", kBurst.c_str()},
        {vqdWriteBufInit, "control", 2, 0, "Error in b1 Control transfer\n",
         "wait 100000, B1 64, wait 100000, B1 64 -9"},
    };
    openCamera();
    for (const auto& c : cases) {
        usb.fail(c.failing, -9, c.nth);
        EXPECT_EQ(printed([&] { EXPECT_EQ(c.call(0), c.result); }), c.printed);
        EXPECT_EQ(usb.conversation(), c.conversation);
        usb.camera(0).reset(usb.now); // else an endpoint that stalled goes on to do so
    }
}

TEST_F(Lifecycle, AWaitThatASignalCutsShortGoesOn)
{
    openCamera();
    usb.interruptedWaits = 2;
    EXPECT_EQ(vqdReadBufInit(0), 1);
    // The remaining wait is measured in real time, and hardly any passes here.
    const std::string conversation = usb.conversation();
    EXPECT_EQ(conversation.rfind("wait 100000, wait ", 0), 0u) << conversation;
    EXPECT_EQ(std::count(conversation.begin(), conversation.begin() + conversation.find("B4"), 'w'), 3) << conversation;
}

TEST_F(Lifecycle, ASilentFifoTimesOutAfterASecond)
{
    sim::Camera& camera = openCamera();
    camera.addFault({.kind = sim::Fault::Kind::timeout, .channel = sim::Channel::bulkIn});
    const sim::TimeUs before = usb.now;
    EXPECT_EQ(printed([] { EXPECT_EQ(vqdReadBufInit(0), 0); }), "Error Read Fifo Data\n");
    EXPECT_EQ(usb.now - before, 1'100'000);
}

TEST_F(Lifecycle, CloseStopsGrabbingAndEndsTheContextWithTheLastCamera)
{
    usb.plug();
    openCamera();
    list();
    m_nDeviceOpen[0] = 1;
    EXPECT_EQ(printed([] { EXPECT_EQ(vqdDeviceClose(0), 1); }), "");
    EXPECT_EQ(usb.conversation(), "wait 100, " + kImageSent + ", wait 100000, close 2");
    EXPECT_EQ(m_nDeviceOpen[0], 0);
    EXPECT_EQ(m_nUnInit, 1);
    EXPECT_EQ(usb.contextUses, 2); // number 1 still needs it
    EXPECT_EQ(printed([] { EXPECT_EQ(vqdDeviceClose(1), 1); }), "");
    EXPECT_EQ(usb.conversation(), "wait 100, " + kImageSent + ", wait 100000, close 3, exit, exit");
    EXPECT_EQ(usb.configurationsHeld, 0);
    // A close ends a use of the default context even when the library has none left.
    EXPECT_EQ(printed([] { EXPECT_EQ(vqdDeviceClose(0), 1); }), "");
    EXPECT_EQ(usb.conversation(), "exit");
}

} // namespace
