// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Enumeration and the public list.
#include <cstring>
#include <fstream>

#include "support/library_test.h"

namespace
{

using Discovery = LibraryTest;

const char kVersion[] = "VQD_Library_Ver2.4_180220\n";

sim::Config product(const char* name, uint16_t productId = 0x871A)
{
    sim::Config config;
    config.product = name;
    config.productId = productId;
    return config;
}

TEST_F(Discovery, FillsSlotsAndRecordsInListOrderAndSkipsStrangers)
{
    sim::Config first = product("VQD-HT120");
    first.serial = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD};
    usb.plug(first);
    usb.plug(product("no camera", 0x8721));
    usb.plug(product("VQD-RS110 rev B", 0x8732));
    memset(devices.data(), 0x5A, sizeof devices);

    EXPECT_EQ(printed([&] { EXPECT_EQ(vqdGetDeviceList(devices.data(), &count), 1); }).rfind(kVersion, 0), 0u);

    EXPECT_EQ(count, 2);
    EXPECT_EQ(m_nDeviceCount, 2);
    EXPECT_EQ(usb.conversation().rfind("init, list, open 2, open 4, B8 128 at 1200", 0), 0u);
    EXPECT_EQ(usb.listsHeld, 0);
    EXPECT_STREQ(devices[0].szDeviceName, "VQD-HT120");
    EXPECT_STREQ(devices[0].szVendorName, "VQD");
    EXPECT_STREQ(devices[0].szSerialNumber, "0123456789abcd");
    EXPECT_EQ(devices[0].nVendorId, 0x03A4);
    EXPECT_EQ(devices[1].nProductId, 0x8732);
    EXPECT_EQ(devices[1].nIndex, 1);
    EXPECT_EQ(devices[0].nModelFlag, 1);
    EXPECT_EQ(devices[1].nModelFlag, 0);
    EXPECT_EQ(devices[0].szReserved[0], 0x5A); // the library never writes it
    EXPECT_EQ(devices[0].nReserved, 0x5A5A);
    EXPECT_EQ(devices[0].szDeviceName[255], 0); // the whole field is written
    EXPECT_EQ(memcmp(m_stDevInfo[1].szVendorName, devices[1].szVendorName, 1032 - 260), 0);
    EXPECT_EQ(m_stDevInfo[2].nIndex, -1);
    EXPECT_EQ(m_nDeviceOpen[0], 0);
    EXPECT_EQ(printed([] { EXPECT_EQ(vqdDeviceIsOpen(0), 1); }), "");
}

// Without a udev rule only root could open the camera.
TEST_F(Discovery, AcceptsExactlyTheKnownProductIdsWhichAllHaveAUdevRule)
{
    std::vector<unsigned> accepted, ruled;
    for (unsigned id = 0x8700; id < 0x8800; ++id) {
        const size_t port = usb.plug(product("x", static_cast<uint16_t>(id)));
        const int listed = list();
        EXPECT_TRUE(listed == 1 || listed == -2) << std::hex << id;
        if (listed == 1)
            accepted.push_back(id);
        usb.unplug(port);
    }
    EXPECT_EQ(accepted, (std::vector<unsigned>{0x8718, 0x871A, 0x871C, 0x8720, 0x8722, 0x8724, 0x8726, 0x8728, 0x872A,
                                               0x8730, 0x8732}));
    std::ifstream file(VQD_UDEV_RULES);
    for (std::string line; std::getline(file, line);) {
        unsigned id = 0;
        int end = 0;
        sscanf(line.c_str(),
               R"(ATTR{idVendor}=="03a4", ATTR{idProduct}=="%4x", MODE="0660", GROUP="plugdev", TAG+="uaccess"%n)", &id,
               &end);
        if (end > 0)
            ruled.push_back(id);
    }
    EXPECT_EQ(ruled, accepted);
    sim::Config stranger;
    stranger.vendorId = 0x03A5;
    usb.plug(stranger);
    EXPECT_EQ(list(), -2);
}

// The designator may stand anywhere in the product's name. Only for host-corrected cameras are tables read.
TEST_F(Discovery, TheDesignatorDecidesOnModelFlagAndTables)
{
    const struct {
        const char* name;
        int flag;
        bool tables;
    } models[] = {{"VQD-HT120", 1, true},  {"a VQD-HT120 b", 1, true}, {"VQD-HT950X", 1, true},
                  {"VQD-WN120", 1, false}, {"VQD-RS120", 1, false},    {"VQD-RS110", 0, false},
                  {"VQD-HT110", 0, false}, {"VQD-HT950", 0, false},    {"vqd-ht120", 0, false},
                  {"", 0, false}};
    for (const auto& model : models) {
        SCOPED_TRACE(model.name);
        const size_t port = usb.plug(product(model.name));
        printed([&] { EXPECT_EQ(vqdGetDeviceList(devices.data(), &count), 1); });
        EXPECT_EQ(devices[0].nModelFlag, model.flag);
        EXPECT_EQ(m_stDevInfo[0].nModelFlag, model.flag);
        EXPECT_EQ(usb.conversation().find("BB") != std::string::npos, model.tables);
        usb.unplug(port);
    }
}

TEST_F(Discovery, SaysWhyNothingIsListed)
{
    const struct {
        const char* call;
        int result;
        const char* printed;
        int count;
    } cases[] = {
        {"", 0, "Error in Device not connection\n", -1},
        {"init", -99, "Error in initializing libusb library...\n", 77},
        {"list", -11, "Error in device connection\nError in Device not connection\n", -1},
    };
    for (const auto& c : cases) {
        usb.fail(c.call, c.result);
        count = 77;
        EXPECT_EQ(printed([&] { EXPECT_EQ(vqdGetDeviceList(devices.data(), &count), -2); }),
                  std::string(kVersion) + c.printed);
        EXPECT_EQ(count, c.count);
    }
    // While no camera is attached, nothing would be written to the list, so a null list does no harm.
    EXPECT_EQ(printed([&] { EXPECT_EQ(vqdGetDeviceList(nullptr, &count), -2); }),
              std::string(kVersion) + "Error in Device not connection\n");
    EXPECT_EQ(count, -1);
    usb.plug();
    EXPECT_EQ(printed([&] { EXPECT_EQ(vqdGetDeviceList(nullptr, &count), -2); }), kVersion);
    EXPECT_EQ(printed([&] { EXPECT_EQ(vqdGetDeviceList(devices.data(), nullptr), -2); }), kVersion);
}

TEST_F(Discovery, ACameraThatCanNotBeOpenedEndsTheListingAndHoldsTheListOnlyUntilTheNext)
{
    usb.plug();
    usb.plug();
    usb.fail("open", -3, 2);
    EXPECT_EQ(printed([&] { EXPECT_EQ(vqdGetDeviceList(devices.data(), &count), -2); }),
              std::string(kVersion) + "Error in openning device.\nError in Device not connection\n");
    EXPECT_EQ(count, -1);
    EXPECT_EQ(usb.listsHeld, 1);
    EXPECT_EQ(usb.openHandles(), 1); // number 0 stays open
    EXPECT_EQ(printed([] { EXPECT_EQ(vqdDeviceIsOpen(0), 1); }), "");

    EXPECT_EQ(list(), 2);
    EXPECT_EQ(usb.listsHeld, 0);
    EXPECT_EQ(usb.openHandles(), 2);
}

TEST_F(Discovery, ElevenCamerasAreRefusedAndTheirHandlesCanBeGivenBack)
{
    for (int i = 0; i < 11; ++i)
        usb.plug();
    EXPECT_EQ(printed([&] { EXPECT_EQ(vqdGetDeviceList(devices.data(), &count), -2); }),
              std::string(kVersion) + "VQD max device 11.\n");
    EXPECT_EQ(count, -1);
    EXPECT_EQ(usb.openHandles(), 10);
    printed([] {
        for (int n = 0; n < 10; ++n)
            EXPECT_EQ(vqdDeviceClose(n), 1);
    });
    EXPECT_EQ(usb.openHandles(), 0);
    EXPECT_EQ(usb.contextUses, 0);
}

TEST_F(Discovery, ANewListingReplacesHandlesOnceAndDropsVanishedCameras)
{
    usb.plug();
    usb.plug();
    ASSERT_EQ(list(), 2);
    m_pFrameInfo[0].nFrameCount = 9;
    stCamParam[0].image[200] = 7;
    ASSERT_EQ(list(), 2);
    EXPECT_EQ(usb.closes, 2u);
    EXPECT_EQ(usb.openHandles(), 2);
    EXPECT_EQ(m_pFrameInfo[0].nFrameCount, 9u); // initialised once a process
    EXPECT_EQ(stCamParam[0].image[200], 7);

    usb.unplug(1);
    ASSERT_EQ(list(), 1);
    EXPECT_EQ(usb.openHandles(), 1);
    EXPECT_EQ(printed([] { EXPECT_EQ(vqdDeviceIsOpen(1), 0); }), "VQD Device not opened.\n");
}

TEST_F(Discovery, UnreadableStringsDoNotStayAndEndlessOnesDoNotOverrun)
{
    usb.plug();
    ASSERT_EQ(list(), 1);
    usb.fail("string", -9, 1, 4);
    ASSERT_EQ(list(), 1);
    EXPECT_STREQ(devices[0].szDeviceName, "");
    EXPECT_STREQ(m_stDevInfo[0].szVendorName, "");
    usb.answerString = [](int, unsigned char* data, int length) {
        memset(data, '%', static_cast<size_t>(length));
        return 5000;
    };
    ASSERT_EQ(list(), 1);
    EXPECT_EQ(std::string(devices[0].szDeviceName), std::string(63, '%'));
}

TEST_F(Discovery, InitialisesTheTablesOnceAndReadsTheClockTwentyTimes)
{
    usb.logClock = true;
    stCamParam[3].image[127] = stCamParam[3].image[128] = 5;
    EXPECT_EQ(InitParameter(), 1);
    std::string readings = "clock";
    for (int i = 1; i < 20; ++i)
        readings += ", clock";
    EXPECT_EQ(usb.conversation(), readings);
    EXPECT_EQ(stCamParam[3].image[127], 0);
    EXPECT_EQ(stCamParam[3].image[128], 5);
    EXPECT_EQ(m_pFrameInfo[9].nWidth, 320u);
    EXPECT_EQ(m_pRGBFrameInfo[9].nHeight, 960u);
    EXPECT_EQ(g_vqdHighReslTimer[9].init, 1.7e12);
    UnInitParameter();
    EXPECT_EQ(InitParameter(), 0);
}

} // namespace
