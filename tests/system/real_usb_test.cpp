// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The library through the real, unmodified libusb: virtual cameras on a bus of this process.
#include <array>
#include <cstring>
#include <mutex>

#include <gtest/gtest.h>

#include "VQD_API.h"
#include "sim/umockdev_bus.h"
#include "support/geometry_measures.h"
#include "support/marked_source.h"

namespace
{

class RealUsb : public testing::TestWithParam<uint32_t>
{
protected:
    void plug(uint16_t mark)
    {
        sim::Config config;
        config.serial[6] = static_cast<uint8_t>(mark / 1000);
        config.source = std::make_shared<Marked>(mark);
        config.framesPerSecond = 60;
        bus.add(config);
    }

    void start(int cameras)
    {
        ASSERT_EQ(vqdGetDeviceList(devices.data(), &count), 1);
        ASSERT_EQ(count, cameras);
        for (int n = 0; n < cameras; ++n) {
            ASSERT_EQ(vqdDeviceOpen(n), 1);
            ASSERT_EQ(vqdGrabStart(n), 1);
        }
    }

    int serialDigit(int n) const { return devices[static_cast<size_t>(n)].szSerialNumber[13] - '0'; }

    // Reads a frame and compares every pixel with what the source of the camera that was listed as n made for it.
    void expectOwnFrame(int n)
    {
        const auto mark = static_cast<uint16_t>(serialDigit(n) * 1000);
        ASSERT_EQ(vqdReadFromDevice(n, images.data(), &info), 1);
        const uint64_t frame = frameInBuffer();
        EXPECT_EQ(Marked(mark).wrongPixels(frame, amplitude.data(), depth.data()), 0u)
            << "camera " << n << ", frame " << frame;
    }

    void TearDown() override
    {
        for (int n = 0; n < count; ++n)
            EXPECT_EQ(vqdDeviceClose(n), 1);
    }

    sim::Bus bus{sim::BusOptions{.capabilities = GetParam()}};
    std::array<DevInfo, VQD_MAX_DEVICES> devices{};
    int count = 0;
    std::array<uint16_t, VQD_PIXELS> amplitude{}, depth{};
    std::array<uint16_t*, 2> images{amplitude.data(), depth.data()};
    FrameInfo info{};
};

TEST_P(RealUsb, FramesArriveBitForBit)
{
    plug(2000);
    start(1);
    EXPECT_STREQ(devices[0].szDeviceName, "VQD-HT120");
    EXPECT_STREQ(devices[0].szSerialNumber, "24061100000002");
    for (int i = 0; i < 5; ++i)
        expectOwnFrame(0);
    EXPECT_EQ(info.nFrameCount, 5u);
    EXPECT_EQ(vqdGrabStop(0), 1);
    bus.withCamera(0, [](sim::Camera& camera) { EXPECT_FALSE(camera.grabbing()); });
}

TEST_P(RealUsb, AFlipMirrorsWhatTheCameraSends)
{
    plug(2000);
    start(1);
    ASSERT_EQ(vqdSetFlipHorizontal(0, 1), 1);
    ASSERT_EQ(vqdReadFromDevice(0, images.data(), &info), 1); // may have been exposed before
    ASSERT_EQ(vqdReadFromDevice(0, images.data(), &info), 1);
    const uint64_t frame = frameInBuffer();
    for (const size_t column : {0, 1, 150, 319})
        EXPECT_EQ(amplitude[320 * 7 + column], Marked::amplitudeAt(frame, 320 * 7 + 319 - column)) << column;
}

TEST_P(RealUsb, UndistortionMakesEdgesStraightAndWallsFlat)
{
    for (const bool horizon : {true, false}) {
        sim::Config config;
        config.product = "VQD-HT110";
        config.source =
            horizon ? std::make_shared<Horizon>() : sim::makeScene({.kind = sim::SceneKind::wall, .noise = 0});
        bus.add(config);
    }
    start(2);
    const auto measure = [&](int mode) {
        std::array<double, 2> results{}; // bend of the horizon, roughness of the wall
        EXPECT_EQ(vqdSetUndistortion(0, mode), 1);
        for (const int n : {0, 1}) {
            EXPECT_EQ(vqdReadFromDevice(n, images.data(), &info), 1);
            const bool horizon = depth[0] == 2000 && depth[VQD_PIXELS / 2] == 2000;
            results[horizon ? 0 : 1] = horizon ? bend(amplitude.data()) : roughness(depth.data());
        }
        return results;
    };
    const auto bent = measure(0);
    EXPECT_GT(bent[0], 5);
    EXPECT_GT(bent[1], 10);
    const auto straight = measure(2);
    EXPECT_LT(straight[0], 0.7);
    EXPECT_LT(straight[1], 0.5);
}

TEST_P(RealUsb, ACameraThatIsUnpluggedInMidStreamGoesOnWhenItIsBack)
{
    plug(2000);
    start(1);
    expectOwnFrame(0);
    const unsigned address = bus.address(0);
    bus.withCamera(0, [](sim::Camera& camera) {
        camera.addFault(
            {.kind = sim::Fault::Kind::unplug, .channel = sim::Channel::bulkIn, .nth = 2, .backAfter = 300'000});
    });
    expectOwnFrame(0);
    EXPECT_EQ(vqdReadFromDevice(0, images.data(), &info), 1); // re-opens, and delivers the frame before again
    EXPECT_NE(bus.address(0), address);
    EXPECT_EQ(m_nDeviceOpen[0], 1);
    for (int i = 0; i < 3; ++i)
        expectOwnFrame(0);
    EXPECT_EQ(info.nFrameCount, 6u);
}

TEST_P(RealUsb, TwoCamerasKeepTheirNumbersWhenOneIsReplaced)
{
    plug(2000);
    plug(3000);
    start(2);
    expectOwnFrame(0);
    expectOwnFrame(1);
    const auto port = static_cast<size_t>(serialDigit(0) - 2); // libusb does not list in the order of plugging
    bus.unplug(port);
    bus.plug(port);
    EXPECT_EQ(vqdReadFromDevice(0, images.data(), &info), 1);
    for (int i = 0; i < 3; ++i) {
        expectOwnFrame(0);
        expectOwnFrame(1);
    }
}

TEST_P(RealUsb, TheUnplugExampleSurvivesAnUnplug)
{
    plug(2000);
    bus.withCamera(0, [](sim::Camera& camera) {
        camera.addFault(
            {.kind = sim::Fault::Kind::unplug, .channel = sim::Channel::bulkIn, .nth = 10, .backAfter = 300'000});
    });
    FILE* const example = popen("LD_PRELOAD=libumockdev-preload.so.0 " VQD_UNPLUG_EXAMPLE, "r");
    ASSERT_NE(example, nullptr);
    std::string output(4096, '\0');
    output.resize(fread(output.data(), 1, output.size(), example));
    EXPECT_EQ(pclose(example), 0) << output;
    EXPECT_NE(output.find("the camera is back after frame"), std::string::npos) << output;
}

// As a USB 3 host controller announces, and without scatter-gather, where libusb splits a frame into 16 KiB pieces.
INSTANTIATE_TEST_SUITE_P(Capabilities, RealUsb, testing::Values(0x1f, 0x13));

} // namespace
