// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Re-open: its conversation, its budget, and cameras that come back to their own numbers.
#include <cstring>

#include "support/library_test.h"

namespace
{

using Reopen = LibraryTest;

// From the reset to the end of grab start.
std::string restart()
{
    return "reset, B2 64, wait 100000, B3 64, wait 500000, wait 100000, B4 64, in 2048, "
           "B2 64, wait 100000, B3 64, wait 100000, " +
           kBurst + ", wait 100, " + kImageSent + ", " + kImageSent + ", wait 100000";
}

TEST_F(Reopen, FoundAtOnceRestartsTheCameraWithItsSettings)
{
    sim::Camera& camera = openCamera();
    stCamParam[0].image[33] = 12;
    m_nReopenTime = 555;
    const sim::TimeUs before = usb.now;
    EXPECT_EQ(printed([] { EXPECT_EQ(vqdDeviceReOpen(0), 1); }), "Device Open Success\n");
    EXPECT_EQ(usb.conversation(),
              "wait 100, " + kImageSent + ", wait 100000, close 2, wait 100000, list, open 2, " + restart());
    EXPECT_EQ(usb.now - before, 400'100 + 2'200'100);
    EXPECT_EQ(m_nReopenTime, 600);
    EXPECT_EQ(m_nDeviceOpen[0], 1);
    EXPECT_EQ(m_nDeviceCount, 1);
    EXPECT_EQ(camera.registers[33], 12);
    EXPECT_TRUE(camera.grabbing());
    EXPECT_EQ(m_stDevInfo[0].nIndex, -1);
    EXPECT_STREQ(m_stDevInfo[0].szDeviceName, "VQD-HT120");
    EXPECT_EQ(usb.listsHeld, 0);
}

TEST_F(Reopen, GivesUpAfter101EnumerationsAndLeavesBudget499)
{
    openCamera();
    usb.unplug(0);
    m_nDeviceOpen[0] = 1;
    EXPECT_EQ(printed([] { EXPECT_EQ(vqdDeviceReOpen(0), -3); }), "vqdWriteToDevice Contol transfer Error.\n");
    std::string searched = "wait 100, B1 64 -4, wait 100000, close 2";
    for (int i = 0; i < 101; ++i)
        searched += ", wait 100000, list";
    EXPECT_EQ(usb.conversation(), searched);
    EXPECT_EQ(m_nReopenTime, 499);
    EXPECT_EQ(m_nDeviceOpen[0], 0);
    EXPECT_EQ(usb.listsHeld, 0);

    EXPECT_EQ(printed([] { EXPECT_EQ(vqdDeviceReOpen(0), -3); }), "");
    EXPECT_EQ(usb.conversation(), "");
    usb.replug(0);
    m_nReopenTime = 500; // the application allows one more try
    EXPECT_EQ(printed([] { EXPECT_EQ(vqdDeviceReOpen(0), 1); }), "Device Open Success\n");
}

TEST_F(Reopen, ACameraThatCanNotBeOpenedCostsBudgetAndLeaksNoList)
{
    openCamera();
    usb.fail("open", -3, 1, 2);
    std::string lines = printed([] { EXPECT_EQ(vqdDeviceReOpen(0), 1); });
    EXPECT_EQ(lines, "Error in openning device.\nError in openning device.\nDevice Open Success\n");
    EXPECT_EQ(usb.listsHeld, 0);
}

TEST_F(Reopen, ARefusedStartEmptiesTheNumberButLeavesItMarked)
{
    const struct {
        unsigned nth;
        const char* printed;
    } cases[] = {{2, "ReOpen Error in b2 Control transfer\n"}, {3, "Error in b3 Control transfer\n"}};
    usb.plug();
    for (const auto& c : cases) {
        list();
        usb.fail("control", -9, c.nth); // the first request is that of the grab stop
        EXPECT_EQ(printed([] { EXPECT_EQ(vqdDeviceReOpen(0), 0); }), c.printed);
        EXPECT_EQ(usb.openHandles(), 0);
        EXPECT_EQ(m_nDeviceOpen[0], 1);
        EXPECT_EQ(m_nReopenTime, 600);
        EXPECT_EQ(m_nDeviceCount, 0);
    }
}

TEST_F(Reopen, AfterTheLastCloseTheContextIsStartedAgain)
{
    openCamera();
    printed([] { vqdDeviceClose(0); });
    usb.conversation();
    EXPECT_EQ(usb.contextUses, 0);
    EXPECT_EQ(printed([] { EXPECT_EQ(vqdDeviceReOpen(0), 1); }), "Device Open Success\n");
    EXPECT_EQ(usb.conversation(), "wait 100000, init, list, open 2, " + restart());
    printed([] { vqdDeviceClose(0); });
    EXPECT_EQ(usb.contextUses, 0);
}

// Three cameras with serials 1, 2, 3 in numbers 0, 1, 2.
class SeveralCameras : public LibraryTest
{
protected:
    void SetUp() override
    {
        for (int i = 0; i < 3; ++i)
            usb.plug();
        listWithSerials({1, 2, 3});
    }

    // Sets the last byte of each camera's serial number; 0 is a camera without one.
    void setSerials(const std::array<uint8_t, 3>& last)
    {
        for (size_t port = 0; port < 3; ++port) {
            memset(&usb.camera(port).eeprom[57], 0, 7);
            usb.camera(port).eeprom[63] = last[port];
        }
    }

    void listWithSerials(const std::array<uint8_t, 3>& last)
    {
        setSerials(last);
        ASSERT_EQ(list(), 3);
    }

    // Puts all three on a bus that reports one place for all.
    void listOnOnePlace(bool named)
    {
        usb.onePlace = true;
        listWithSerials(named ? std::array<uint8_t, 3>{1, 2, 3} : std::array<uint8_t, 3>{});
        setSerials({1, 2, 3}); // shows the test which camera answers
    }

    // They vanish together and come back one after the other.
    void plugAgain(std::initializer_list<size_t> ports)
    {
        for (const size_t port : ports)
            usb.unplug(port);
        for (const size_t port : ports)
            usb.replug(port);
    }

    // A re-open that gives up after this many searches.
    static int reopened(int n, int searches = 101)
    {
        int result = 0;
        m_nReopenTime = 499 + searches;
        printed([&] { result = vqdDeviceReOpen(n); });
        return result;
    }

    static void close(int n)
    {
        printed([=] { vqdDeviceClose(n); });
    }

    // The last serial byte of the camera that number n talks to.
    static int serialBehind(int n)
    {
        std::array<unsigned char, 512> image{};
        int result = 0;
        printed([&] { result = vqdEEPROM_ParameterData_Load(n, image.data()); });
        return result == 1 ? image[63] : -1;
    }

    static void expectOwnCameras()
    {
        for (int n = 0; n < 3; ++n)
            EXPECT_EQ(serialBehind(n), n + 1);
    }
};

TEST_F(SeveralCameras, TheOthersAreNotTouched)
{
    plugAgain({1});
    EXPECT_EQ(printed([] { EXPECT_EQ(vqdDeviceReOpen(1), 1); }),
              "vqdWriteToDevice Contol transfer Error.\nDevice Open Success\n");
    const std::string conversation = usb.conversation();
    EXPECT_NE(conversation.find("close 3, wait 100000, list, open 5, reset"), std::string::npos) << conversation;
    EXPECT_EQ(usb.closes, 1u);
    EXPECT_EQ(m_nDeviceCount, 3);
    expectOwnCameras();
}

TEST_F(SeveralCameras, WithoutSerialNumbersTheLostNumbersAreServedInOrder)
{
    listWithSerials({0, 0, 0});
    plugAgain({0, 1});
    printed([] { UnInitialize_vqdapi(0, 0); });
    EXPECT_EQ(reopened(1), 1); // the second of two lost numbers
    EXPECT_EQ(reopened(0), 1);
    const std::string conversation = usb.conversation();
    EXPECT_LT(conversation.rfind("open 6, reset"), conversation.rfind("open 5, reset")) << conversation;
}

TEST_F(SeveralCameras, OneWithoutASerialNumberIsFoundBesideOthers)
{
    listWithSerials({1, 0, 3});
    close(0); // by intent; its camera stays plugged in
    plugAgain({1});
    EXPECT_EQ(reopened(1), 1);
    EXPECT_EQ(serialBehind(1), 0);

    EXPECT_EQ(reopened(0), 1);
    for (const size_t first : {size_t{0}, size_t{1}}) { // number 0's camera is known by its serial number
        plugAgain({first, 1 - first});
        EXPECT_EQ(reopened(1), 1);
        EXPECT_EQ(reopened(0), 1);
        EXPECT_EQ(serialBehind(1), 0);
        EXPECT_EQ(serialBehind(0), 1);
    }
}

TEST_F(SeveralCameras, ASerialNumberCountsFromWhenItIsWrittenOrRead)
{
    const auto expectItIsNumber1s = [&] {
        usb.unplug(0);
        plugAgain({1});
        EXPECT_EQ(reopened(0, 2), -3); // must not take a camera of which nothing is known
        EXPECT_EQ(reopened(1, 2), 1);
        usb.replug(0);
        EXPECT_EQ(reopened(0), 1);
    };
    listWithSerials({0, 0, 3});
    std::array<unsigned char, 512> image{};
    printed([&] {
        vqdParameterData_Load(1, image.data());
        image[63] = 2;
        EXPECT_EQ(vqdEEPROM_ParameterData_Save(1, image.data()), 1);
    });
    expectItIsNumber1s();
    setSerials({0, 5, 3});
    EXPECT_EQ(serialBehind(1), 5);
    expectItIsNumber1s();
    EXPECT_EQ(serialBehind(0), 0);
    EXPECT_EQ(serialBehind(1), 5);
}

TEST_F(SeveralCameras, AClosedNumberWaitsForNoCameraButKeepsItsSerialNumber)
{
    for (const uint8_t last : {0, 1}) { // number 0's camera: without a serial number, and with one
        listWithSerials({last, 0, 0});
        close(0);
        usb.unplug(0);
        plugAgain({1});
        EXPECT_EQ(reopened(1), 1);
        EXPECT_EQ(serialBehind(1), 0);
        usb.unplug(1);
        usb.replug(0);
        EXPECT_EQ(reopened(1, 2), last == 1 ? -3 : 1);
        usb.replug(1);
    }
}

TEST_F(SeveralCameras, AClosedNumberThatIsReadAgainWaitsForItsCamera)
{
    listWithSerials({0, 0, 0});
    usb.unplug(0);
    usb.unplug(1);
    close(0);
    EXPECT_EQ(reopened(0, 2), -3);
    usb.replug(0);
    EXPECT_EQ(reopened(1, 2), -3); // two numbers wait, and number 0 comes first
    EXPECT_EQ(reopened(0, 2), 1);
    usb.replug(1);
    EXPECT_EQ(reopened(1, 2), 1);
}

// Where all cameras report one place, a lost one is recognised by its serial number, or without one by its position.
TEST_F(SeveralCameras, OnOnePlaceComeBackToTheirNumbers)
{
    for (const bool named : {true, false}) {
        SCOPED_TRACE(named);
        listOnOnePlace(named);
        for (const int n : {0, 2}) {
            usb.unplug(static_cast<size_t>(n));
            EXPECT_EQ(reopened(n, 2), -3); // the others are not its camera
            usb.replug(static_cast<size_t>(n));
            EXPECT_EQ(reopened(n), 1);
        }
        plugAgain({0, 1});
        EXPECT_EQ(reopened(1), 1);
        EXPECT_EQ(reopened(0), 1);
        EXPECT_EQ(usb.openHandles(), 3);
        expectOwnCameras();
    }
}

TEST_F(SeveralCameras, OnOnePlaceTheCameraOfAClosedNumberStaysItsOwn)
{
    for (const bool named : {true, false})
        for (const int closed : {0, 2}) {
            SCOPED_TRACE(testing::Message() << named << " " << closed);
            listOnOnePlace(named);
            close(closed);
            usb.unplug(1);
            EXPECT_EQ(reopened(1, 2), -3);
            EXPECT_EQ(reopened(closed), 1); // it is asked for while another number waits
            close(closed);
            usb.replug(1);
            EXPECT_EQ(reopened(1), 1);
            EXPECT_EQ(reopened(closed), 1);
            expectOwnCameras();
        }
}

TEST_F(SeveralCameras, ANewCameraOfAnotherProductIsNotTaken)
{
    sim::Config other;
    other.productId = 0x8732;
    usb.unplug(1);
    usb.plug(other);
    usb.replug(1);
    EXPECT_EQ(reopened(1), 1);
    EXPECT_EQ(serialBehind(1), 2);
}

TEST_F(SeveralCameras, AnotherNumbersAddressIsNotTaken)
{
    close(0); // by intent; its camera stays plugged in
    usb.unplug(1);
    EXPECT_EQ(reopened(1, 1), -3);
    EXPECT_EQ(reopened(0), 1);
    EXPECT_EQ(serialBehind(0), 1);
}

} // namespace
