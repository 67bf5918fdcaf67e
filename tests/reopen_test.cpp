// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Re-open: its conversation, its budget, and cameras that come back to their own numbers.
#include <cstring>

#include "support/library_test.h"

namespace
{

using Reopen = LibraryTest;

const char kImage[] = "B1 64, wait 100000, out 512, wait 200000, ";

// From the reset to the end of grab start.
std::string restart()
{
    std::string text = "reset, B2 64, wait 100000, B3 64, wait 500000, wait 100000, B4 64, in 2048, "
                       "B2 64, wait 100000, B3 64, wait 100000, ";
    for (int i = 0; i < 5; ++i)
        text += "wait 100000, B1 64, ";
    return text + "wait 100, " + kImage + kImage + "wait 100000";
}

TEST_F(Reopen, FoundAtOnceRestartsTheCameraWithItsSettings)
{
    sim::Camera& camera = openCamera();
    stCamParam[0].image[33] = 12;
    m_nReopenTime = 555;
    const sim::TimeUs before = usb.now;
    EXPECT_EQ(printed([] { EXPECT_EQ(vqdDeviceReOpen(0), 1); }), "Device Open Success\n");
    EXPECT_EQ(usb.conversation(),
              std::string("wait 100, ") + kImage + "wait 100000, close 2, wait 100000, list, open 2, " + restart());
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

TEST_F(Reopen, LooksEvery100MsUntilTheCameraIsBack)
{
    openCamera();
    usb.unplug(0, 450'000); // 100.1 ms of it pass while the dead camera is asked to stop
    int result = 0;
    printed([&] { result = vqdDeviceReOpen(0); });
    EXPECT_EQ(result, 1);
    EXPECT_EQ(usb.conversation(),
              "wait 100, B1 64 -4, wait 100000, close 2, "
              "wait 100000, list, wait 100000, list, wait 100000, list, wait 100000, list, open 3, " +
                  restart());
    EXPECT_EQ(m_nReopenTime, 600);
}

TEST_F(Reopen, GivesUpAfter101EnumerationsAndLeavesBudget499)
{
    openCamera();
    usb.unplug(0);
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
        usb.fail("control", -9, c.nth); // the first is the stop of the release
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
        for (uint8_t i = 1; i <= 3; ++i) {
            sim::Config config;
            config.serial = {0, 0, 0, 0, 0, 0, i};
            usb.plug(config);
        }
        ASSERT_EQ(list(), 3);
    }

    void setSerial(size_t port, uint8_t last)
    {
        memset(&usb.camera(port).eeprom[57], 0, 7);
        usb.camera(port).eeprom[63] = last;
    }

    // The last serial byte of the camera that number n talks to.
    static int serialBehind(int n)
    {
        std::array<unsigned char, 512> image{};
        int result = 0;
        printed([&] { result = vqdEEPROM_ParameterData_Load(n, image.data()); });
        return result == 1 ? image[63] : -1;
    }
};

TEST_F(SeveralCameras, TheOthersAreNotTouched)
{
    usb.unplug(1);
    usb.replug(1);
    EXPECT_EQ(printed([] { EXPECT_EQ(vqdDeviceReOpen(1), 1); }),
              "vqdWriteToDevice Contol transfer Error.\nDevice Open Success\n");
    const std::string conversation = usb.conversation();
    EXPECT_NE(conversation.find("close 3, wait 100000, list, open 5, reset"), std::string::npos) << conversation;
    EXPECT_EQ(usb.closes, 1u);
    EXPECT_EQ(m_nDeviceCount, 3);
    for (int n = 0; n < 3; ++n)
        EXPECT_EQ(serialBehind(n), n + 1);
}

TEST_F(SeveralCameras, ComeBackToTheirNumbersInAnyOrder)
{
    for (size_t port = 0; port < 3; ++port)
        usb.unplug(port);
    usb.replug(2); // first seen: the last one
    m_nReopenTime = 501;
    printed([] { EXPECT_EQ(vqdDeviceReOpen(0), -3); }); // camera 2 is not its camera
    m_nReopenTime = 600;
    printed([] { EXPECT_EQ(vqdDeviceReOpen(2), 1); });
    usb.replug(1);
    usb.replug(0);
    printed([] { EXPECT_EQ(vqdDeviceReOpen(0), 1); });
    printed([] { EXPECT_EQ(vqdDeviceReOpen(1), 1); });
    for (int n = 0; n < 3; ++n)
        EXPECT_EQ(serialBehind(n), n + 1);
    EXPECT_EQ(usb.openHandles(), 3);
    EXPECT_EQ(m_nDeviceCount, 3);
}

TEST_F(SeveralCameras, WithoutSerialNumbersTheLostNumbersAreServedInOrder)
{
    for (size_t port = 0; port < 3; ++port)
        setSerial(port, 0);
    ASSERT_EQ(list(), 3);
    usb.unplug(0);
    usb.unplug(1);
    usb.replug(0);
    usb.replug(1);
    printed([] {
        UnInitialize_vqdapi(0, 0);
        EXPECT_EQ(vqdDeviceReOpen(1), 1); // the second of two lost numbers
        EXPECT_EQ(vqdDeviceReOpen(0), 1);
    });
    const std::string conversation = usb.conversation();
    EXPECT_LT(conversation.rfind("open 6, reset"), conversation.rfind("open 5, reset")) << conversation;
}

TEST_F(SeveralCameras, OneWithoutASerialNumberIsFoundBesideOthers)
{
    setSerial(1, 0);
    ASSERT_EQ(list(), 3);
    printed([] { vqdDeviceClose(0); }); // by intent; its camera stays plugged in
    usb.unplug(1);
    usb.replug(1);
    printed([] { EXPECT_EQ(vqdDeviceReOpen(1), 1); });
    EXPECT_EQ(serialBehind(1), 0);

    printed([] { EXPECT_EQ(vqdDeviceReOpen(0), 1); });
    for (const size_t first : {size_t{0}, size_t{1}}) { // number 0's camera is known by its serial number
        usb.unplug(0);
        usb.unplug(1);
        usb.replug(first);
        usb.replug(1 - first);
        printed([] {
            EXPECT_EQ(vqdDeviceReOpen(1), 1);
            EXPECT_EQ(vqdDeviceReOpen(0), 1);
        });
        EXPECT_EQ(serialBehind(1), 0);
        EXPECT_EQ(serialBehind(0), 1);
    }
}

TEST_F(SeveralCameras, ASerialNumberCountsFromWhenItIsReadOrWritten)
{
    setSerial(0, 0);
    setSerial(1, 0);
    ASSERT_EQ(list(), 3);
    std::array<unsigned char, 512> image{};
    printed([&] {
        vqdParameterData_Load(0, image.data());
        image[63] = 1;
        EXPECT_EQ(vqdEEPROM_ParameterData_Save(0, image.data()), 1);
    });
    setSerial(1, 2);
    EXPECT_EQ(serialBehind(1), 2);
    usb.unplug(0);
    usb.unplug(1);
    usb.replug(1);
    printed([] {
        m_nReopenTime = 501;
        EXPECT_EQ(vqdDeviceReOpen(0), -3);
        m_nReopenTime = 501;
        EXPECT_EQ(vqdDeviceReOpen(1), 1);
    });
    usb.replug(0);
    printed([] { EXPECT_EQ(vqdDeviceReOpen(0), 1); });
    EXPECT_EQ(serialBehind(0), 1);
    EXPECT_EQ(serialBehind(1), 2);
}

TEST_F(SeveralCameras, AClosedNumberWaitsForNoCameraButKeepsItsSerialNumber)
{
    setSerial(2, 0);
    for (const int last : {0, 1}) { // number 0's camera: without a serial number, and with one
        setSerial(0, static_cast<uint8_t>(last));
        setSerial(1, 0);
        ASSERT_EQ(list(), 3);
        printed([] { vqdDeviceClose(0); });
        usb.unplug(0);
        usb.unplug(1);
        usb.replug(1);
        printed([] { EXPECT_EQ(vqdDeviceReOpen(1), 1); });
        EXPECT_EQ(serialBehind(1), 0);
        usb.unplug(1);
        usb.replug(0);
        m_nReopenTime = 501;
        printed([&] { EXPECT_EQ(vqdDeviceReOpen(1), last == 1 ? -3 : 1); });
        m_nReopenTime = 600;
        usb.replug(1);
    }
}

TEST_F(SeveralCameras, AClosedNumberThatIsReadAgainWaitsForItsCamera)
{
    for (size_t port = 0; port < 3; ++port)
        setSerial(port, 0);
    ASSERT_EQ(list(), 3);
    usb.unplug(0);
    usb.unplug(1);
    const auto reopened = [](int n) {
        int result = 0;
        m_nReopenTime = 501;
        printed([&] { result = vqdDeviceReOpen(n); });
        return result;
    };
    printed([] { vqdDeviceClose(0); });
    EXPECT_EQ(reopened(0), -3);
    usb.replug(0);
    EXPECT_EQ(reopened(1), -3); // of two that wait, number 0 comes first
    EXPECT_EQ(reopened(0), 1);
    usb.replug(1);
    EXPECT_EQ(reopened(1), 1);
}

// A bus that reports one place for all: a lost camera is told by its serial number, without one by its position.
TEST_F(SeveralCameras, OnOnePlaceComeBackToTheirNumbers)
{
    usb.showOnePlace();
    for (const bool named : {true, false}) {
        for (uint8_t i = 0; i < 3; ++i)
            setSerial(i, named ? i + 1 : 0);
        ASSERT_EQ(list(), 3);
        for (uint8_t i = 0; i < 3; ++i)
            setSerial(i, i + 1); // tells the test which camera answers
        for (const size_t port : {size_t{0}, size_t{2}}) {
            usb.unplug(port);
            m_nReopenTime = 501;
            printed([&] { EXPECT_EQ(vqdDeviceReOpen(static_cast<int>(port)), -3); }); // the others are not its camera
            m_nReopenTime = 600;
            usb.replug(port);
            printed([&] { EXPECT_EQ(vqdDeviceReOpen(static_cast<int>(port)), 1); });
        }
        usb.unplug(0);
        usb.unplug(1);
        usb.replug(0);
        usb.replug(1);
        printed([] { EXPECT_EQ(vqdDeviceReOpen(1), 1); });
        printed([] { EXPECT_EQ(vqdDeviceReOpen(0), 1); });
        EXPECT_EQ(usb.openHandles(), 3);
        for (int n = 0; n < 3; ++n)
            EXPECT_EQ(serialBehind(n), n + 1) << named;
    }
}

TEST_F(SeveralCameras, OnOnePlaceTheCameraOfAClosedNumberStaysItsOwn)
{
    usb.showOnePlace();
    for (const bool named : {true, false})
        for (const int closed : {0, 2}) {
            for (uint8_t i = 0; i < 3; ++i)
                setSerial(i, named ? i + 1 : 0);
            ASSERT_EQ(list(), 3);
            for (uint8_t i = 0; i < 3; ++i)
                setSerial(i, i + 1); // tells the test which camera answers
            printed([&] { vqdDeviceClose(closed); });
            usb.unplug(1);
            m_nReopenTime = 501;
            printed([] { EXPECT_EQ(vqdDeviceReOpen(1), -3); });
            m_nReopenTime = 600;
            printed([&] { EXPECT_EQ(vqdDeviceReOpen(closed), 1); }); // asked for while another waits
            printed([&] { vqdDeviceClose(closed); });
            usb.replug(1);
            printed([] { EXPECT_EQ(vqdDeviceReOpen(1), 1); });
            printed([&] { EXPECT_EQ(vqdDeviceReOpen(closed), 1); });
            for (int n = 0; n < 3; ++n)
                EXPECT_EQ(serialBehind(n), n + 1) << named << closed;
        }
}

TEST_F(SeveralCameras, AnotherNumbersAddressIsNotTaken)
{
    printed([] { vqdDeviceClose(0); }); // by intent; its camera stays plugged in
    usb.unplug(1);
    m_nReopenTime = 500;
    printed([] { EXPECT_EQ(vqdDeviceReOpen(1), -3); });
    m_nReopenTime = 600;
    printed([] { EXPECT_EQ(vqdDeviceReOpen(0), 1); });
    EXPECT_EQ(serialBehind(0), 1);
}

} // namespace
