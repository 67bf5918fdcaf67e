// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Parameter load, factory settings and the EEPROM.
#include <cstring>

#include "support/library_test.h"

namespace
{

using Parameter = LibraryTest;

const char kDefaults[] = "0 VQD EEPROM Parameter Load Fail, Load Default Parameter.\n";

// The factory settings, byte by byte.
std::array<unsigned char, 128> factory()
{
    std::array<unsigned char, 128> image{};
    const struct {
        int at;
        std::vector<unsigned char> bytes;
    } runs[] = {{0, {0, 10, 2, 0, 0x81, 2, 9, 0, 0, 0xE2}},
                {12, {0x13, 0xFA, 0x01, 0x08, 0x00, 0x66, 0x05, 0x60, 0x00, 0x00, 0x3A, 0x98}},
                {26, {0x01, 0x15, 0xA0, 0x78, 0x18, 0x00, 0x10}},
                {37, {0x00, 0x26, 0xAC}}};
    for (const auto& run : runs)
        std::copy(run.bytes.begin(), run.bytes.end(), image.begin() + run.at);
    return image;
}

TEST_F(Parameter, AValidImageIsTakenAsItIs)
{
    sim::Camera& camera = openCamera();
    camera.eeprom.fill(0);
    camera.eeprom[4] = 0x81;
    camera.eeprom[64] = 0x01;
    camera.eeprom[65] = 0x2C;
    stCamParam[0].image[130] = 0x77;
    std::array<unsigned char, 512> image{};
    const std::string lines = printed([&] { EXPECT_EQ(vqdEEPROM_ParameterData_Load(0, image.data()), 1); });
    EXPECT_EQ(lines.find(kDefaults), std::string::npos);
    EXPECT_EQ(memcmp(image.data(), camera.eeprom.data(), 128), 0);
    EXPECT_EQ(image[130], 0x77); // bytes from 128 on are not the EEPROM's
    EXPECT_EQ(m_nDepthGab, 300);
}

TEST_F(Parameter, AnInvalidOrMissingImageGivesFactorySettings)
{
    sim::Camera& camera = openCamera();
    const auto load = [&] {
        std::array<unsigned char, 512> image{};
        const std::string lines = printed([&] { EXPECT_EQ(vqdEEPROM_ParameterData_Load(0, image.data()), 1); });
        EXPECT_EQ(lines.find(kDefaults), 0u) << lines;
        EXPECT_EQ(memcmp(image.data(), factory().data(), 128), 0);
        EXPECT_EQ(m_nDepthGab, 0);
    };
    camera.eeprom[4] = 0x80;
    load();
    camera.eeprom[4] = 0x81;
    usb.fail("control", -7);
    load();
    camera.addFault({.kind = sim::Fault::Kind::shortened, .request = 0xB8, .bytes = 0});
    load();
    camera.addFault({.kind = sim::Fault::Kind::shortened, .request = 0xB8, .bytes = 3});
    load();
}

TEST_F(Parameter, AShortReadLeavesZerosBehindIt)
{
    sim::Camera& camera = openCamera();
    camera.eeprom.fill(0x55);
    camera.eeprom[4] = 0x81;
    camera.addFault({.kind = sim::Fault::Kind::shortened, .request = 0xB8, .bytes = 40});
    printed([] { EXPECT_EQ(LoadParameter(0), 1); });
    EXPECT_EQ(stCamParam[0].image[39], 0x55);
    EXPECT_EQ(stCamParam[0].image[40], 0);
}

TEST_F(Parameter, SaveWritesTheEepromAndTheCopyOnly)
{
    sim::Camera& camera = openCamera();
    std::array<unsigned char, 128> block = factory();
    block[33] = 42;
    EXPECT_EQ(printed([&] { EXPECT_EQ(vqdEEPROM_ParameterData_Save(0, block.data()), 1); }),
              "EEPROM Parameter Save Success.\n");
    EXPECT_EQ(usb.conversation(), "B7 128 at 1200");
    EXPECT_EQ(memcmp(camera.eeprom.data(), block.data(), 128), 0);
    EXPECT_EQ(camera.registers[33], 0);
    std::array<unsigned char, 512> image{};
    EXPECT_EQ(vqdParameterData_Load(0, image.data()), 1);
    EXPECT_EQ(image[33], 42);
    EXPECT_EQ(usb.conversation(), "");

    usb.fail("control", -9);
    EXPECT_EQ(printed([&] { EXPECT_EQ(vqdEEPROM_ParameterData_Save(0, block.data()), 1); }), "");
}

} // namespace
