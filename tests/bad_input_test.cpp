// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Device numbers outside 0 to 9, null pointers and null handles: refused, with nothing touched.
#include <climits>

#include "support/library_test.h"

namespace
{

using BadInput = LibraryTest;

const char kClosed[] = "VQD Device not opened.\n";

TEST_F(BadInput, NumbersOutsideTheTablesAreCamerasThatAreNotOpen)
{
    std::array<unsigned char, 512> block{};
    const struct {
        const char* name;
        std::function<int(int)> call;
        int result;
        const char* printed;
    } cases[] = {
        {"check", VQDDevice_ErrorChecked, -2, kClosed},
        {"is open", vqdDeviceIsOpen, 0, kClosed},
        {"open", vqdDeviceOpen, 0, "VQD Device handle false\n"},
        {"close", vqdDeviceClose, -2, kClosed},
        {"re-open", vqdDeviceReOpen, -2, kClosed},
        {"grab start", vqdGrabStart, 0, kClosed},
        {"grab stop", vqdGrabStop, 0, kClosed},
        {"read buffer init", vqdReadBufInit, 0, kClosed},
        {"read buffer reset", vqdReadBufReset, 0, kClosed},
        {"write buffer init", vqdWriteBufInit, 0, kClosed},
        {"load", LoadParameter, 0, kClosed},
        {"save", SaveParameter, 0, kClosed},
        {"write", [&](int n) { return vqdWriteToDevice(n, block.data()); }, 0, kClosed},
        {"data load", [&](int n) { return vqdParameterData_Load(n, block.data()); }, 0, kClosed},
        {"EEPROM load", [&](int n) { return vqdEEPROM_ParameterData_Load(n, block.data()); }, 0, kClosed},
        {"EEPROM save", [&](int n) { return vqdEEPROM_ParameterData_Save(n, block.data()); }, -2, kClosed},
        {"read", [&](int n) { return vqdReadFromDevice(n, images.data(), &info); }, -2, kClosed},
        {"release",
         [](int n) {
             UnInitialize_vqdapi(n, 1);
             return 0;
         },
         0, ""},
    };
    openCamera();
    for (const auto& c : cases)
        for (const int n : {-1, 10, INT_MAX, INT_MIN}) {
            int result = 99;
            EXPECT_EQ(printed([&] { result = c.call(n); }), c.printed) << c.name << " " << n;
            EXPECT_EQ(result, c.result) << c.name << " " << n;
        }
    EXPECT_EQ(usb.conversation(), "");
    EXPECT_EQ(usb.contextUses, 1);
}

// A null pointer is noticed where it would be used: the frame is read before, and a lost camera is the first concern.
TEST_F(BadInput, ReadNeedsImagesAndInfo)
{
    openCamera();
    vqdGrabStart(0);
    uint16_t* half[2] = {amplitude.data(), nullptr};
    for (uint16_t** wanted : {static_cast<uint16_t**>(nullptr), half, images.data()}) {
        usb.conversation();
        EXPECT_EQ(vqdReadFromDevice(0, wanted, wanted == images.data() ? nullptr : &info), 0);
        EXPECT_EQ(usb.conversation(), "in 307712");
    }
    EXPECT_EQ(m_pFrameInfo[0].nFrameCount, 0u);
    EXPECT_GT(m_dTemperature[0], 0);
    UnInitialize_vqdapi(0, 0);
    m_nReopenTime = 499;
    usb.conversation();
    EXPECT_EQ(vqdReadFromDevice(0, nullptr, nullptr), -3);
    EXPECT_EQ(usb.conversation(), "sleep 1");
}

TEST_F(BadInput, WrappersTakeNullHandles)
{
    char text[8] = "before";
    libusb_device_descriptor descriptor;
    libusb_config_descriptor* configuration = nullptr;
    unsigned char byte = 0;
    int moved = 0;
    EXPECT_EQ(usb_get_device_descriptor(nullptr, &descriptor), -4);
    EXPECT_EQ(usb_getvendor(nullptr), 0);
    EXPECT_EQ(usb_get_SerialNumber(nullptr, text, sizeof text), text);
    EXPECT_STREQ(text, "before");
    EXPECT_EQ(usb_get_busnumber(nullptr), 0);
    EXPECT_EQ(usb_claim_interface(nullptr, 0), -4);
    EXPECT_EQ(usb_get_config_descriptor(nullptr, 0, &configuration), -4);
    EXPECT_EQ(usb_control_transfer(nullptr, 0x40, 0xB1, 0, 0, &byte, 1, 1000), -4);
    EXPECT_EQ(usb_bulk_transfer(nullptr, 0x86, &byte, 1, &moved, 1000), -4);
    EXPECT_EQ(device_is_of_interest(nullptr), 0);
    usb_free_config_descriptor(nullptr);
}

} // namespace
