// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The frame read: delivery, retries and re-opens, header, stamps.
#include <algorithm>
#include <cstring>
#include <functional>

#include "support/library_test.h"
#include "support/marked_source.h"

namespace
{

constexpr uint16_t kMark = 2000;

class Frame : public LibraryTest
{
protected:
    sim::Camera& grab(const char* product = "VQD-HT120", double framesPerSecond = 30)
    {
        sim::Config config;
        config.product = product;
        config.framesPerSecond = framesPerSecond;
        config.source = std::make_shared<Marked>(kMark);
        sim::Camera& camera = openCamera(config);
        EXPECT_EQ(vqdGrabStart(0), 1);
        usb.conversation();
        return camera;
    }

    int read(int n = 0) { return vqdReadFromDevice(n, images.data(), &info); }
};

TEST_F(Frame, CopiesBothPlanesAndCounts)
{
    grab();
    EXPECT_EQ(printed([&] { EXPECT_EQ(read(), 1); }), "");
    EXPECT_EQ(usb.conversation(), "in 307712");
    EXPECT_EQ(memcmp(amplitude.data(), buffers + 512, 153600), 0);
    EXPECT_EQ(memcmp(depth.data(), buffers + 154112, 153600), 0);
    EXPECT_EQ(Marked(kMark).wrongPixels(frameInBuffer(), amplitude.data(), depth.data()), 0u);
    EXPECT_EQ(info.nWidth, 320u);
    EXPECT_EQ(info.nHeight, 240u);
    EXPECT_EQ(info.nFrameCount, 1u);
    EXPECT_EQ(info.nTimeStamp, 0);
    usb.conversation();
    EXPECT_EQ(read(), 1);
    EXPECT_EQ(info.nFrameCount, 2u);
    EXPECT_NEAR(static_cast<double>(info.nTimeStamp), 33, 1);
    EXPECT_EQ(m_stDevInfo[0].nIndex, 0);
}

TEST_F(Frame, HeaderGivesTemperatureAndLogicVersion)
{
    const struct {
        unsigned raw;
        double temperature;
    } cases[] = {{0, 0}, {400, 25}, {2047, 127.9375}, {2048, -128}, {4095, -0.0625}, {4096, -256}, {65535, -0.0625}};
    grab();
    for (const auto& c : cases) {
        usb.answerBulkIn = [&](std::span<uint8_t> data, size_t&) {
            const uint8_t header[] = {
                0x44, 0x33, 0, 0, 0, 0, static_cast<uint8_t>(c.raw), static_cast<uint8_t>(c.raw >> 8), 5, 2};
            std::ranges::copy(header, data.begin());
            return 0;
        };
        EXPECT_EQ(read(), 1);
        EXPECT_EQ(m_dTemperature[0], c.temperature) << c.raw;
    }
    EXPECT_EQ(m_nLogicver[0][0], 2);
    EXPECT_EQ(m_nLogicver[1][0], 5);
}

TEST_F(Frame, TheStopSwitchWinsOverEverything)
{
    grab();
    m_nReadingStop = 1;
    EXPECT_EQ(printed([&] {
                  EXPECT_EQ(read(), 0);
                  EXPECT_EQ(read(99), 0);
                  EXPECT_EQ(vqdReadFromDevice(0, nullptr, nullptr), 0);
              }),
              "");
    EXPECT_EQ(usb.conversation(), "");
    m_nReadingStop = 2;
    EXPECT_EQ(read(), 1);
}

TEST_F(Frame, TwoFailuresAreRetriedAtOnce)
{
    grab();
    usb.fail("bulk", -1, 1, 2);
    EXPECT_EQ(printed([&] { EXPECT_EQ(read(), 1); }), "ReadFromDevice Read Error, Device Reset2, -1\n"
                                                      "ReadFromDevice Read Error, Device Reset2, -1\n");
    EXPECT_EQ(usb.conversation(), "in 307712 -1, in 307712 -1, in 307712");
    EXPECT_EQ(m_nRetriesCount, 0);
}

TEST_F(Frame, TheThirdFailureReopensAndJudgesTheOldBuffer)
{
    grab();
    EXPECT_EQ(read(), 1);
    const auto before = depth;
    depth.fill(0);
    usb.fail("bulk", -1, 1, 3);
    std::string lines;
    for (int i = 0; i < 3; ++i)
        lines += "ReadFromDevice Read Error, Device Reset2, -1\n";
    EXPECT_EQ(printed([&] { EXPECT_EQ(read(), 1); }), lines + "Device Open Success\n");
    EXPECT_EQ(depth, before);
    EXPECT_EQ(info.nFrameCount, 2u);
    EXPECT_EQ(m_nRetriesCount, 0);
    EXPECT_EQ(m_nDeviceOpen[0], 1);
    EXPECT_EQ(read(), 1); // the stream goes on
    EXPECT_EQ(m_nLogicver[0][0], 2);
}

TEST_F(Frame, AWrongStartCodeReopensAndLeavesTheImages)
{
    sim::Camera& camera = grab();
    EXPECT_EQ(read(), 1);
    const auto before = depth;
    camera.addFault({.kind = sim::Fault::Kind::badStartCode, .channel = sim::Channel::bulkIn});
    m_dTemperature[0] = 99;
    EXPECT_EQ(printed([&] { EXPECT_EQ(read(), 1); }),
              "ReadFromDevice Read Error, Device Reset\nDevice Open Success\nincorrect Start code ReadBuf Init\n");
    EXPECT_EQ(depth, before);
    EXPECT_EQ(m_dTemperature[0], 99);
    EXPECT_EQ(info.nFrameCount, 2u);
    EXPECT_EQ(read(), 1);
    EXPECT_NE(depth, before);
}

// Endpoints that stall go on to do so; the reset of a re-open ends that, of the one for images as well.
TEST_F(Frame, AnEndpointThatStalledIsFreedByAReopen)
{
    sim::Camera& camera = grab();
    EXPECT_EQ(read(), 1);
    camera.addFault({.channel = sim::Channel::bulkOut});
    EXPECT_EQ(printed([] { EXPECT_EQ(vqdSetOffset(0, 7), 0); }), "vqdWriteToDevice Bulk transfer Error.\n");
    EXPECT_EQ(printed([] { EXPECT_EQ(vqdSetOffset(0, 8), 0); }), "vqdWriteToDevice Bulk transfer Error.\n");
    camera.addFault({.channel = sim::Channel::bulkIn});
    EXPECT_EQ(printed([&] { EXPECT_EQ(read(), 1); }), "ReadFromDevice Read Error, Device Reset2, -9\n"
                                                      "ReadFromDevice Read Error, Device Reset2, -9\n"
                                                      "ReadFromDevice Read Error, Device Reset2, -9\n"
                                                      "vqdWriteToDevice Bulk transfer Error.\n"
                                                      "Device Open Success\n");
    usb.conversation();
    EXPECT_EQ(read(), 1);
    EXPECT_EQ(usb.conversation(), "in 307712");
    EXPECT_EQ(camera.registers[25], 8);
}

TEST_F(Frame, AVanishedCameraComesBackOnANewAddress)
{
    sim::Camera& camera = grab();
    EXPECT_EQ(read(), 1);
    camera.addFault({.kind = sim::Fault::Kind::unplug, .channel = sim::Channel::bulkIn, .backAfter = 700'000});
    const std::string lines = printed([&] { EXPECT_EQ(read(), 1); });
    EXPECT_NE(lines.find("Device Reset2, -4\nvqdWriteToDevice Contol transfer Error.\nDevice Open Success\n"),
              std::string::npos)
        << lines;
    EXPECT_EQ(read(), 1);
    EXPECT_EQ(usb.openHandles(), 1);
}

TEST_F(Frame, WithoutAHandleTheReadReopensFirst)
{
    grab();
    printed([] { UnInitialize_vqdapi(0, 0); });
    EXPECT_EQ(printed([&] { EXPECT_EQ(read(), 1); }),
              "ReadFromDevice Read Error, Device Reset1\nDevice Open Success\n");
    printed([] { UnInitialize_vqdapi(0, 0); });
    usb.unplug(0);
    m_nDeviceOpen[0] = 1;
    EXPECT_EQ(printed([&] { EXPECT_EQ(read(), -3); }), "ReadFromDevice Read Error, Device Reset1\n");
    EXPECT_EQ(m_nDeviceOpen[0], 0);
}

TEST_F(Frame, ASpentBudgetPausesASecondInEveryPath)
{
    sim::Camera& camera = grab();
    m_nReopenTime = 499;
    m_nDeviceOpen[0] = 1;
    EXPECT_EQ(read(), 1); // a good frame needs no budget
    usb.conversation();

    camera.addFault({.kind = sim::Fault::Kind::badStartCode, .channel = sim::Channel::bulkIn});
    EXPECT_EQ(printed([&] { EXPECT_EQ(read(), -3); }), "");
    EXPECT_EQ(usb.conversation(), "in 307712, sleep 1");
    usb.fail("bulk", -4, 1, 3);
    printed([&] { EXPECT_EQ(read(), -3); });
    EXPECT_EQ(usb.conversation(), "in 307712 -4, in 307712 -4, in 307712 -4, sleep 1");
    EXPECT_EQ(m_nRetriesCount, 0);
    printed([] { UnInitialize_vqdapi(0, 0); });
    usb.conversation();
    EXPECT_EQ(printed([&] { EXPECT_EQ(read(), -3); }), "");
    EXPECT_EQ(usb.conversation(), "sleep 1");
    EXPECT_EQ(m_nDeviceOpen[0], 1);
    EXPECT_EQ(info.nFrameCount, 1u);

    usb.interruptedWaits = 1; // a signal cuts the wait short, and the rest of the second follows
    printed([&] { EXPECT_EQ(read(), -3); });
    EXPECT_EQ(usb.conversation().rfind("sleep 1, wait 9", 0), 0u);
}

TEST_F(Frame, TheHostClipsOnlyAfterTheRangeIsReadBack)
{
    usb.plug(); // becomes number 0, whose range differs
    grab();
    EXPECT_EQ(vqdGrabStart(1), 1);
    EXPECT_EQ(vqdSetDepthRange(1, kMark + 1, kMark + 20), 1);
    EXPECT_EQ(read(1), 1);
    EXPECT_EQ(Marked(kMark).wrongPixels(frameInBuffer(), amplitude.data(), depth.data()), 0u);
    EXPECT_EQ(vqdGetDepthRange(1, nullptr, nullptr), 1);
    EXPECT_EQ(read(1), 1);
    EXPECT_EQ(std::ranges::count(depth, 0), VQD_PIXELS / 50 * 30);
}

TEST_F(Frame, AShortFrameIsNotNoticed)
{
    sim::Camera& camera = grab();
    EXPECT_EQ(read(), 1);
    camera.addFault({.kind = sim::Fault::Kind::shortened, .channel = sim::Channel::bulkIn, .bytes = 512});
    const auto before = amplitude;
    EXPECT_EQ(printed([&] { EXPECT_EQ(read(), 1); }), "");
    EXPECT_EQ(amplitude, before); // the planes of the previous frame stay in the buffer
}

TEST_F(Frame, EveryStreamIsStampedFromItsOwnFirstFrame)
{
    sim::Config other;
    other.framesPerSecond = 0;
    usb.plug(other);
    grab("VQD-HT110", 0); // numbers 0 and 1
    EXPECT_EQ(vqdGrabStart(1), 1);
    m_nRGBCamOpen[0] = m_nRGBCamOpen[1] = -1; // any value but 0
    std::vector<unsigned char> colours(1280 * 960 * 3, 0xAB);
    const struct {
        std::function<int(int)> read;
        std::string transfer;
        const FrameInfo* records;
        const StreamTimer* timers;
        const int& started;
        uint32_t width, height;
    } streams[] = {
        {[&](int n) { return read(n); }, "in 307712, ", m_pFrameInfo, g_vqdHighReslTimer, m_nTimeStampStartFlag, 320,
         240},
        {[&](int n) { return vqdReadFromDevice_RGB888(n, colours.data(), &info); }, "", m_pRGBFrameInfo,
         g_vqdHighReslTimerRGB, m_nTimeStampStartFlag_RGB, 1280, 960},
    };
    const struct {
        int n;
        sim::TimeUs later;
        const char* clock;
        uint64_t frames;
        int64_t stamp;
    } calls[] = {
        {0, 0, "clock, clock", 1, -1},       // the start is read after the frame's own time
        {0, 39'000, "clock", 2, 40},         //
        {1, 500'000, "clock, clock", 1, -1}, // a stream of its own
        {1, 40'000, "clock", 2, 41},         //
        {0, 0, "clock", 3, 584},             //
    };
    usb.logClock = true;
    usb.clockStep = 1000; // a millisecond passes between two readings
    for (const auto& stream : streams) {
        EXPECT_EQ(stream.started, 0);
        usb.now = -1000; // the first stream starts at 0, which is a time like any other
        usb.conversation();
        for (const auto& c : calls) {
            usb.now += c.later;
            EXPECT_EQ(printed([&] { EXPECT_EQ(stream.read(c.n), 1); }), "");
            EXPECT_EQ(usb.conversation(), stream.transfer + c.clock);
            EXPECT_EQ(info.nWidth, stream.width);
            EXPECT_EQ(info.nHeight, stream.height);
            EXPECT_EQ(info.nFrameCount, c.frames);
            EXPECT_EQ(info.nTimeStamp, c.stamp);
            EXPECT_EQ(stream.records[c.n].nFrameCount, c.frames);
            EXPECT_EQ(stream.timers[c.n].latest - stream.timers[c.n].start, c.stamp);
        }
        EXPECT_EQ(stream.started, 1);
    }
    EXPECT_EQ(std::ranges::count(colours, 0xAB), std::ssize(colours)); // the application moves the pixels itself
}

} // namespace
