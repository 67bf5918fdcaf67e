// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The library through the real, unmodified libusb, with a virtual camera on a bus of this process, mocked or the kernel's.
#include <array>

#include <gtest/gtest.h>

#include "VQD_API.h"
#include "support/marked_source.h"
#include "support/test_bus.h"

namespace
{

class RealUsb : public testing::TestWithParam<uint32_t>
{
protected:
    void SetUp() override
    {
        sim::Config config;
        config.source = source;
        config.framesPerSecond = 60;
        bus->add(config);
        std::array<DevInfo, VQD_MAX_DEVICES> devices{};
        int count = 0;
        ASSERT_EQ(vqdGetDeviceList(devices.data(), &count), 1);
        ASSERT_EQ(count, 1);
        EXPECT_STREQ(devices[0].szDeviceName, "VQD-HT120");
        EXPECT_STREQ(devices[0].szSerialNumber, "24061100000001");
        ASSERT_EQ(vqdDeviceOpen(0), 1);
        ASSERT_EQ(vqdGrabStart(0), 1);
    }

    // Reads frames and compares every pixel with what the source made for them.
    void expectOwnFrames(int frames)
    {
        for (; frames > 0; --frames) {
            ASSERT_EQ(vqdReadFromDevice(0, images.data(), &info), 1);
            const uint64_t frame = frameInBuffer();
            EXPECT_EQ(source->wrongPixels(frame, amplitude.data(), depth.data()), 0u) << "frame " << frame;
        }
    }

    void TearDown() override { EXPECT_EQ(vqdDeviceClose(0), 1); }

    std::shared_ptr<Marked> source = std::make_shared<Marked>(2000);
    const std::unique_ptr<sim::Bus> bus = testBus({.capabilities = GetParam()});
    std::array<uint16_t, VQD_PIXELS> amplitude{}, depth{};
    std::array<uint16_t*, 2> images{amplitude.data(), depth.data()};
    FrameInfo info{};
};

TEST_P(RealUsb, FramesArriveBitForBit)
{
    expectOwnFrames(5);
    EXPECT_EQ(info.nFrameCount, 5u);
    EXPECT_EQ(vqdGrabStop(0), 1);
    bus->withCamera(0, [](sim::Camera& camera) { EXPECT_FALSE(camera.grabbing()); });
}

TEST_P(RealUsb, ACameraThatIsUnpluggedInMidStreamGoesOnWhenItIsBack)
{
    expectOwnFrames(1);
    const sim::UsbAddress address = bus->address(0);
    bus->withCamera(0, [](sim::Camera& camera) {
        camera.addFault(
            {.kind = sim::Fault::Kind::unplug, .channel = sim::Channel::bulkIn, .nth = 2, .backAfter = 300'000});
    });
    expectOwnFrames(1);
    EXPECT_EQ(vqdReadFromDevice(0, images.data(), &info), 1); // re-opens, and delivers the previous frame again
    EXPECT_NE(bus->address(0), address);
    EXPECT_EQ(m_nDeviceOpen[0], 1);
    expectOwnFrames(3);
    EXPECT_EQ(info.nFrameCount, 6u);
    bus->unplug(0);
    bus->plug(0);
    EXPECT_EQ(vqdReadFromDevice(0, images.data(), &info), 1);
    expectOwnFrames(1);
}

// With the capabilities of a USB 3 host controller, and without scatter-gather, where libusb splits a frame into pieces
// of 16 KiB.
INSTANTIATE_TEST_SUITE_P(Capabilities, RealUsb, testing::Values(0x1f, 0x13));

} // namespace
