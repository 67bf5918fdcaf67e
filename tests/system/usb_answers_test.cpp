// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What a program that talks to libusb itself is told: the same on the mocked bus as on that of a kernel.
#include <algorithm>
#include <array>
#include <vector>

#include <gtest/gtest.h>
#include <libusb.h>

#include "support/marked_source.h"
#include "support/test_bus.h"

namespace
{

constexpr int kFrame = 307712;

class UsbAnswers : public testing::Test
{
protected:
    void SetUp() override
    {
        sim::Config config;
        config.source = std::make_shared<Marked>(2000);
        config.framesPerSecond = 20;
        bus->add(config);
        ASSERT_EQ(libusb_init(nullptr), 0);
        handle = libusb_open_device_with_vid_pid(nullptr, 0x03A4, 0x871A);
        ASSERT_NE(handle, nullptr);
    }
    void TearDown() override
    {
        libusb_close(handle);
        libusb_exit(nullptr);
    }

    int read(int bytes, unsigned timeout = 1000)
    {
        data.assign(static_cast<size_t>(bytes), 0);
        moved = -1;
        return libusb_bulk_transfer(handle, 0x86, data.data(), bytes, &moved, timeout);
    }
    int ask(uint8_t type, uint8_t request, uint16_t index, uint16_t length)
    {
        data.assign(length, 0xEE);
        return libusb_control_transfer(handle, type, request, 0, index, data.data(), length, 1000);
    }
    int command(uint8_t request)
    {
        std::array<uint8_t, 64> zeros{};
        return libusb_control_transfer(handle, 0x40, request, 0, 0, zeros.data(), zeros.size(), 1000);
    }
    int sendImage(uint8_t grab)
    {
        std::array<uint8_t, 512> image{};
        image[11] = grab;
        command(0xB1);
        return libusb_bulk_transfer(handle, 0x02, image.data(), image.size(), &moved, 1000);
    }

    const std::unique_ptr<sim::Bus> bus = testBus({});
    libusb_device_handle* handle = nullptr;
    std::vector<unsigned char> data;
    int moved = 0;
};

TEST_F(UsbAnswers, WhatTheCameraDoesNotHaveIsRefusedWithTheKernelsErrors)
{
    EXPECT_EQ(libusb_claim_interface(handle, 1), LIBUSB_ERROR_NOT_FOUND);
    ASSERT_EQ(libusb_set_auto_detach_kernel_driver(handle, 1), 0);
    EXPECT_EQ(libusb_claim_interface(handle, 1), LIBUSB_ERROR_INVALID_PARAM);
    ASSERT_EQ(libusb_claim_interface(handle, 0), 0);
    EXPECT_EQ(libusb_set_interface_alt_setting(handle, 0, 0), 0);
    EXPECT_EQ(libusb_set_interface_alt_setting(handle, 0, 1), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_clear_halt(handle, 0x86), 0);
    EXPECT_EQ(libusb_clear_halt(handle, 0x02), 0);
    EXPECT_EQ(libusb_clear_halt(handle, 0x81), LIBUSB_ERROR_NOT_FOUND);
    int configuration = 0;
    EXPECT_EQ(libusb_get_configuration(handle, &configuration), 0);
    EXPECT_EQ(configuration, 1);
    EXPECT_EQ(ask(0x80, 8, 0, 1), 1);
    EXPECT_EQ(data[0], 1);
    EXPECT_EQ(ask(0x81, 10, 0, 1), 1);
    EXPECT_EQ(data[0], 0);
    EXPECT_EQ(ask(0x80, 0x55, 0, 1), LIBUSB_ERROR_PIPE);
}

TEST_F(UsbAnswers, AStalledEndpointStaysHaltedUntilItIsClearedOrTheCameraIsReset)
{
    ASSERT_EQ(libusb_claim_interface(handle, 0), 0);
    for (int (*const free)(libusb_device_handle*) : {
             +[](libusb_device_handle* camera) { return libusb_clear_halt(camera, 0x86); },
             +[](libusb_device_handle* camera) { return libusb_reset_device(camera); },
         }) {
        ASSERT_EQ(sendImage(1), 0);
        bus->withCamera(0, [](sim::Camera& camera) { camera.addFault({.channel = sim::Channel::bulkIn}); });
        EXPECT_EQ(read(kFrame), LIBUSB_ERROR_PIPE);
        EXPECT_EQ(read(kFrame), LIBUSB_ERROR_PIPE);
        EXPECT_EQ(free(handle), 0);
        ASSERT_EQ(sendImage(1), 0);
        EXPECT_EQ(read(kFrame), 0);
        EXPECT_EQ(moved, kFrame);
    }
    ASSERT_EQ(libusb_reset_device(handle), 0);
    bus->withCamera(0, [](sim::Camera& camera) { EXPECT_FALSE(camera.grabbing()); });
}

TEST_F(UsbAnswers, ATransferThatRunsOutOfTimeKeepsWhatItGot)
{
    ASSERT_EQ(libusb_claim_interface(handle, 0), 0);
    ASSERT_GT(command(0xB4), 0); // leaves 2048 bytes to read
    EXPECT_EQ(read(4096, 200), LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(moved, 2048);
    EXPECT_EQ(read(512, 200), LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(moved, 0);
    ASSERT_EQ(sendImage(1), 0);
    EXPECT_EQ(read(1000), LIBUSB_ERROR_OVERFLOW); // a packet does not fit
}

} // namespace
