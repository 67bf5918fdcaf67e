// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The library through the real, unmodified libusb, with a virtual camera on a bus of this process, mocked or the
// kernel's.
#include <array>
#include <vector>

#include <gtest/gtest.h>

#include "VQD_API.h"
#include "support/marked_source.h"
#include "support/test_bus.h"

namespace
{

struct Way {
    const char* name;
    sim::BusOptions options;
};

void PrintTo(const Way& way, std::ostream* out)
{
    *out << way.name;
}

class RealUsb : public testing::TestWithParam<Way>
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
    const std::unique_ptr<sim::Bus> bus = testBus(GetParam().options);
    std::array<uint16_t, VQD_PIXELS> amplitude{}, depth{};
    std::array<uint16_t*, 2> images{amplitude.data(), depth.data()};
    FrameInfo info{};
    const uint64_t before = m_pFrameInfo[0].nFrameCount; // by the tests before, if one process runs them all
};

TEST_P(RealUsb, FramesArriveBitForBit)
{
    expectOwnFrames(5);
    EXPECT_EQ(info.nFrameCount, before + 5);
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
    EXPECT_EQ(info.nFrameCount, before + 6);
    bus->unplug(0);
    bus->plug(0);
    EXPECT_EQ(vqdReadFromDevice(0, images.data(), &info), 1);
    expectOwnFrames(1);
}

const Way kWays[] = {
    {"AsXhciAnnounces", {}},
    {"FramesInPieces", {.capabilities = 0x13}}, // of 16 KiB, without scatter-gather
    {"TransfersFailFirst", {.transfersFailFirst = true}},
};
// A kernel has its own way.
INSTANTIATE_TEST_SUITE_P(Ways, RealUsb, testing::ValuesIn(kWays, isKernelBus() ? kWays + 1 : std::end(kWays)),
                         [](const auto& way) { return way.param.name; });

} // namespace
