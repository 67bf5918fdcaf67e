// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Tests the virtual camera's side of the wire, because a wrong camera would hide a wrong library.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <numeric>

#include "camera.h"

using namespace sim;

namespace
{

using Bytes = std::vector<uint8_t>;

constexpr TimeUs kMs = 1000;

// Depth grows with the pixel number, so that every pixel of a plane shows its row and its column.
struct Numbered : FrameSource {
    void render(const FrameRequest&, std::span<uint16_t, kPixels> amplitude,
                std::span<uint16_t, kPixels> depth) override
    {
        for (size_t i = 0; i < kPixels; i++) {
            amplitude[i] = static_cast<uint16_t>(i % 320 + 100);
            depth[i] = static_cast<uint16_t>(i / 320 * 64 + i % 64);
        }
    }
};

// 10 frames a second; with 0 a frame is always ready.
Config configOf(double framesPerSecond, std::string product = "VQD-HT120")
{
    Config config;
    config.product = std::move(product);
    config.framesPerSecond = framesPerSecond;
    config.source = std::make_shared<Numbered>();
    return config;
}

class Host
{
public:
    explicit Host(Config config = configOf(10)) : camera(std::move(config))
    {
        image[6] = 9;
        image[9] = 0xE2;
        image[22] = 0x3A;
        image[23] = 0x98;
        image[43] = 0xFF;
    }

    Outcome ask(uint8_t type, uint8_t request, uint16_t value, Bytes& data, uint16_t index = 0)
    {
        return camera.control({type, request, value, index, static_cast<uint16_t>(data.size())}, data, now);
    }
    Outcome command(uint8_t request)
    {
        Bytes zeros(64);
        return ask(0x40, request, 0, zeros);
    }
    Outcome sendImage()
    {
        command(0xB1);
        return camera.bulkOut(0x02, image, now);
    }
    void clearHalt(uint8_t endpoint)
    {
        Bytes none;
        EXPECT_EQ(ask(0x02, 1, 0, none, endpoint).status, Status::ok);
    }
    Outcome grab(uint8_t enable = 1)
    {
        image[11] = enable;
        return sendImage();
    }
    Outcome read(size_t size = kFrameBytes)
    {
        data.assign(size, 0xEE);
        camera.beginBulkIn(now);
        return camera.bulkIn(0x86, data, now);
    }
    uint64_t frameNumber() const { return data[16] + 256u * data[17]; }
    uint16_t pixel(size_t plane, size_t row, size_t column) const
    {
        const size_t at = 512 + 2 * (plane * kPixels + row * 320 + column);
        return static_cast<uint16_t>(data[at] | data[at + 1] << 8);
    }
    uint16_t depth(size_t row, size_t column) const { return pixel(1, row, column); }

    Camera camera;
    Image image{};
    TimeUs now = 5'000'000;
    Bytes data;
};

void expectOutcome(const Outcome& got, Status status, size_t bytes, bool complete, const char* what)
{
    EXPECT_EQ(got.status, status) << what;
    EXPECT_EQ(got.bytes, bytes) << what;
    EXPECT_EQ(got.complete, complete) << what;
}

TEST(SimDescriptors, AreThoseOfABulkCameraWithTwoEndpoints)
{
    const Camera camera{Config{}};
    EXPECT_EQ(camera.deviceDescriptor(),
              (Bytes{18, 1, 0x00, 0x02, 0, 0, 0, 64, 0xA4, 0x03, 0x1A, 0x87, 0x00, 0x01, 1, 2, 3, 1}));
    EXPECT_EQ(camera.configDescriptor(), (Bytes{9, 2, 32, 0, 1, 1, 0, 0x80, 250, 9, 4, 0,    0, 2, 0xFF, 0,
                                                0, 0, 7,  5, 2, 2, 0, 2,    0,   7, 5, 0x86, 2, 0, 2,    0}));
}

TEST(SimDescriptors, StandardRequestsAnswerWhatTheHostAsksFor)
{
    const struct {
        uint8_t type, request;
        uint16_t value, room;
        Status status;
        Bytes bytes;
        uint16_t index = 0;
    } cases[] = {
        {0x80, 6, 0x0300, 255, Status::ok, {4, 3, 9, 4}},
        {0x80, 6, 0x0301, 255, Status::ok, {8, 3, 'V', 0, 'Q', 0, 'D', 0}},
        {0x80, 6, 0x0302, 6, Status::ok, {20, 3, 'V', 0, 'Q', 0}},
        {0x80, 6, 0x0303, 255, Status::ok, {30, 3,   '2', 0,   '4', 0,   '0', 0,   '6', 0,   '1', 0,   '1', 0,   '0',
                                            0,  '0', 0,   '0', 0,   '0', 0,   '0', 0,   '0', 0,   '0', 0,   '1', 0}},
        {0x80, 6, 0x0304, 255, Status::stall, {}}, // no such string
        {0x80, 6, 0x0100, 2, Status::ok, {18, 1}},
        {0x80, 6, 0x0201, 255, Status::stall, {}}, // no second configuration
        {0x80, 0, 0, 2, Status::ok, {0, 0}},
        {0x81, 0, 0, 2, Status::ok, {0, 0}},
        {0x82, 0, 0, 2, Status::ok, {0, 0}},
        {0x81, 0, 0, 2, Status::stall, {}, 1},    // no second interface
        {0x82, 0, 0, 2, Status::stall, {}, 0x81}, // no such endpoint
        {0x02, 1, 0, 0, Status::stall, {}, 0x81},
        {0x02, 1, 1, 0, Status::stall, {}, 0x86}, // a feature that an endpoint does not have
        {0x80, 8, 0, 1, Status::ok, {1}},
        {0x00, 9, 0, 0, Status::ok, {}},
        {0x80, 8, 0, 1, Status::ok, {0}},
        {0x00, 9, 1, 0, Status::ok, {}},
        {0x00, 9, 2, 0, Status::stall, {}},
        {0x80, 8, 0, 1, Status::ok, {1}},
        {0x81, 10, 0, 1, Status::ok, {0}},
        {0x81, 10, 0, 1, Status::stall, {}, 1},
        {0x01, 11, 0, 0, Status::ok, {}},
        {0x01, 11, 1, 0, Status::stall, {}}, // no alternate setting
        {0x01, 11, 0, 0, Status::stall, {}, 1},
        {0x21, 0, 0, 0, Status::stall, {}}, // a class request
    };
    Host host;
    for (const auto& c : cases) {
        Bytes data(c.room);
        const Outcome outcome = host.ask(c.type, c.request, c.value, data, c.index);
        EXPECT_EQ(outcome.status, c.status) << +c.type << " " << +c.request << " " << c.value;
        data.resize(outcome.bytes);
        EXPECT_EQ(data, c.bytes) << c.value;
    }
    Config config;
    config.product = std::string(200, 'x');
    Host wordy(config);
    Bytes data(255);
    EXPECT_EQ(wordy.ask(0x80, 6, 0x0302, data).bytes, 254u);
    EXPECT_EQ(data[0], 254);
}

TEST(SimRequests, StallUnlessDirectionValueIndexAndLengthFit)
{
    const struct {
        uint8_t type, request;
        uint16_t value, length, index;
        Status status;
    } cases[] = {
        {0x40, 0xB1, 0, 64, 0, Status::ok},          {0x40, 0xB1, 0, 63, 0, Status::stall},
        {0xC0, 0xB1, 0, 64, 0, Status::stall},       {0x40, 0xB3, 1, 64, 0, Status::stall},
        {0x40, 0xB3, 0, 64, 1, Status::stall},       {0x40, 0xB5, 0, 64, 0, Status::stall},
        {0xC0, 0xB8, 0x1200, 128, 0, Status::ok},    {0xC0, 0xB8, 0x1200, 127, 0, Status::stall},
        {0xC0, 0xB8, 0, 128, 0, Status::stall},      {0xC0, 0xB7, 0x1200, 128, 0, Status::stall},
        {0x40, 0xB7, 0x1200, 129, 0, Status::stall}, {0x40, 0xBA, 0x4000, 256, 0, Status::stall},
        {0x40, 0xBA, 0x1200, 128, 0, Status::stall}, {0x40, 0xBA, 0x4000, 0, 0, Status::stall},
        {0xC0, 0xBA, 0x4000, 128, 0, Status::stall}, {0xC0, 0xBB, 0x4001, 128, 0, Status::stall},
        {0xC0, 0xBB, 0x4000, 9600, 0, Status::ok},   {0x41, 0xB1, 0, 64, 0, Status::stall},
    };
    for (const auto& c : cases) {
        Host host;
        const Eeprom before = host.camera.eeprom;
        Bytes data(c.length, 0x55);
        const Outcome outcome = host.ask(c.type, c.request, c.value, data, c.index);
        EXPECT_EQ(outcome.status, c.status) << std::hex << +c.request << " " << c.value << " " << c.length;
        EXPECT_EQ(outcome.bytes, c.status == Status::ok ? c.length : 0u);
        EXPECT_EQ(host.camera.eeprom, before);
    }
}

TEST(SimRequests, AnImageIsTakenOnceAfterB1AndOnlyWhole)
{
    Host host;
    EXPECT_EQ(host.camera.bulkOut(0x02, host.image, host.now).status, Status::stall);
    host.clearHalt(0x02);
    host.command(0xB1);
    host.command(0xB1);
    EXPECT_EQ(host.camera.bulkOut(0x02, std::span(host.image).first(511), host.now).status, Status::stall);
    host.clearHalt(0x02);
    EXPECT_EQ(host.camera.bulkOut(0x01, host.image, host.now).status, Status::stall);
    EXPECT_EQ(host.camera.registers, Image{});
    EXPECT_EQ(host.camera.bulkOut(0x02, host.image, host.now).bytes, 512u);
    EXPECT_EQ(host.camera.registers, host.image);
    EXPECT_EQ(host.camera.bulkOut(0x02, host.image, host.now).status, Status::stall);
    host.command(0xB1);
    host.camera.reset(host.now);
    EXPECT_EQ(host.camera.bulkOut(0x02, host.image, host.now).status, Status::stall);
}

TEST(SimEeprom, LeavesTheFactoryWithSettingsLensAndSerialAndKeepsWhatIsWritten)
{
    Host host;
    Bytes read(128);
    ASSERT_EQ(host.ask(0xC0, 0xB8, 0x1200, read).bytes, 128u);
    const std::pair<size_t, Bytes> expected[] = {
        {0, {0x00, 0x0A, 0x02, 0x00, 0x81, 0x02, 0x09, 0x00, 0x00, 0xE2, 0x00, 0x00, 0x13, 0xFA}},
        {14, {0x01, 0x08, 0x00, 0x66, 0x05, 0x60, 0x00, 0x00, 0x3A, 0x98, 0x00, 0x00, 0x01, 0x15, 0xA0}},
        {29, {0x78, 0x18, 0x00, 0x10, 0x00, 0x00, 0x00, 0x00, 0x00, 0x26, 0xAC, 0x00}},
        {45, {0x00, 0x00, 0x00, 0x00, 0x00}},
        {57, {0x24, 0x06, 0x11, 0x00, 0x00, 0x00, 0x01, 0x01, 0x2C}},
        {80, {0x07, 0xF8, 0x07, 0xF8, 0x81, 0x5A, 0x00, 0x78, 0x00, 0x00, 0x06, 0x40, 0x04, 0xB0}},
        {94, {0, 0, 0, 0, 0, 0}},
        {100, {0x09, 0xD1, 0x09, 0xCF, 0x00, 0x51, 0x80, 0xA4, 0x00, 0x00, 0x06, 0x33, 0x04, 0xBE}},
        {114, {0x00, 0x02, 0x80, 0x01, 0x00, 0x00, 0x27, 0x0F, 0x80, 0x57, 0x00, 0x69, 0x00, 0x58}},
    };
    for (const auto& [at, bytes] : expected)
        EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), read.begin() + static_cast<std::ptrdiff_t>(at))) << at;
    EXPECT_EQ(factoryEeprom(configOf(10, "VQD-RS110"))[5], 1);

    Bytes written(128);
    std::iota(written.begin(), written.end(), uint8_t{7});
    host.ask(0x40, 0xB7, 0x1200, written);
    host.camera.unplug(host.now);
    host.camera.plug(host.now);
    host.ask(0xC0, 0xB8, 0x1200, read);
    EXPECT_EQ(read, written);
}

TEST(SimTables, ChunksFillTheirRegionInOrderAndThenStartAnew)
{
    const struct {
        uint16_t region;
        size_t chunk, bytes;
    } layouts[] = {{0x0000, 128, 8192}, {0x0F00, 256, 12288}, {0x0000, 256, 3840}, {0x2000, 128, 8192},
                   {0x4000, 128, 9600}, {0x5800, 128, 6144},  {0x7000, 128, 4096}};
    Host host;
    for (const auto& layout : layouts) {
        Bytes table(layout.bytes);
        for (size_t round = 0; round < 2; round++) {
            for (size_t i = 0; i < table.size(); i++)
                table[i] = static_cast<uint8_t>(i * 7 + i / 256 + layout.chunk + round);
            for (size_t at = 0; at < table.size(); at += layout.chunk) {
                Bytes chunk(table.begin() + static_cast<std::ptrdiff_t>(at),
                            table.begin() + static_cast<std::ptrdiff_t>(at + layout.chunk));
                EXPECT_EQ(host.ask(0x40, 0xBA, layout.region, chunk).bytes, layout.chunk);
            }
        }
        EXPECT_EQ(host.camera.regions[layout.region], table) << layout.region;
        Bytes back(layout.bytes + 10, 0xEE);
        host.ask(0xC0, 0xBB, layout.region, back);
        table.resize(back.size()); // zeros beyond the table
        EXPECT_EQ(back, table) << layout.region;
    }
}

TEST(SimTables, AnyOtherVendorRequestAndAResetBreakARunOfChunks)
{
    const struct {
        const char* between;
        uint8_t type, request;
        uint16_t value, length;
        size_t secondAt;
    } cases[] = {
        {"a USB reset", 0, 0, 0, 0, 0},
        {"a string read", 0x80, 6, 0x0300, 255, 128},
        {"a command", 0x40, 0xB3, 0, 64, 0},
        {"a refused command", 0x40, 0xB3, 0, 63, 0},
        {"a table read", 0xC0, 0xBB, 0x7000, 128, 0},
        {"a chunk of another table", 0x40, 0xBA, 0x4000, 128, 0},
    };
    for (const auto& c : cases) {
        Host host;
        Bytes first(128, 1), second(128, 2), other(c.length);
        host.ask(0x40, 0xBA, 0x7000, first);
        if (c.length > 0)
            host.ask(c.type, c.request, c.value, other);
        else
            host.camera.reset(host.now);
        host.ask(0x40, 0xBA, 0x7000, second);
        const Bytes& region = host.camera.regions[0x7000];
        ASSERT_EQ(region.size(), 4096u);
        EXPECT_EQ(std::find(region.begin(), region.end(), 2) - region.begin(), static_cast<long>(c.secondAt))
            << c.between;
    }
}

TEST(SimStream, FramesComeAtTheirRateOnlyWhileGrabbing)
{
    Host host;
    expectOutcome(host.read(), Status::ok, 0, false, "never started");
    EXPECT_EQ(host.camera.nextBulkIn(host.now), kNever);

    host.grab();
    const TimeUs started = host.now;
    host.now += 40 * kMs;
    host.grab(); // this does not restart the frame clock
    EXPECT_EQ(host.camera.nextBulkIn(host.now), started + 100 * kMs);
    host.now = started + 100 * kMs - 1;
    expectOutcome(host.read(), Status::ok, 0, false, "too early");
    host.now++;
    expectOutcome(host.read(), Status::ok, kFrameBytes, true, "first frame");
    EXPECT_EQ(host.frameNumber(), 0u);
    expectOutcome(host.read(), Status::ok, 0, false, "not twice");

    host.now = started + 570 * kMs; // frames 1 to 4 are complete
    host.read();
    EXPECT_EQ(host.frameNumber(), 4u);
    EXPECT_EQ(host.camera.nextBulkIn(host.now), started + 600 * kMs);
    EXPECT_EQ(host.camera.framesSent(), 2u);

    host.now = started + 610 * kMs;
    host.grab(0); // frame 5 was complete, but is lost with the FIFO
    expectOutcome(host.read(), Status::ok, 0, false, "stopped");
    host.grab(1);
    expectOutcome(host.read(), Status::ok, 0, false, "nothing from before the stop");
    host.now += 100 * kMs;
    host.read();
    EXPECT_EQ(host.frameNumber(), 6u);
    host.camera.reset(host.now);
    EXPECT_FALSE(host.camera.grabbing());
    EXPECT_EQ(host.camera.nextBulkIn(host.now), kNever);
    EXPECT_EQ(host.camera.registers[11], 1);
}

TEST(SimStream, FrameDelayLengthensThePeriod)
{
    Host host;
    host.grab();
    const TimeUs started = host.now;
    host.now += 250 * kMs; // half way through frame 2
    host.read();
    host.image[33] = 20;
    host.sendImage();
    EXPECT_EQ(host.camera.nextBulkIn(host.now), started + 320 * kMs);
    host.image[33] = 255; // beyond the camera's limit of 100
    host.sendImage();
    EXPECT_EQ(host.camera.nextBulkIn(host.now), started + 400 * kMs);
}

TEST(SimStream, HeaderAndPlanesLieWhereTheyShould)
{
    Host host;
    host.grab();
    host.now += 100 * kMs;
    ASSERT_EQ(host.read().bytes, 307712u);
    EXPECT_EQ(host.data[0], 0x44);
    EXPECT_EQ(host.data[1], 0x33);
    EXPECT_NEAR((host.data[6] + 256 * host.data[7]) * 0.0625, 38, 2);
    EXPECT_EQ(host.data[9], 2);
    EXPECT_EQ(host.data[8], 5);
    EXPECT_EQ(host.data[512 + 2 * 319] + 256 * host.data[513 + 2 * 319], 419);
    EXPECT_EQ(host.data[154112 + 2 * 321] + 256 * host.data[154113 + 2 * 321], 65);
    EXPECT_EQ(host.depth(117, 63), 117 * 64 + 63);
}

TEST(SimStream, APartialReadLeavesTheRestAndAnOddOneOverflows)
{
    Host host(configOf(0));
    host.grab();
    expectOutcome(host.read(2048), Status::ok, 2048, true, "part");
    EXPECT_EQ(host.camera.framesSent(), 0u);
    host.read(1024);
    EXPECT_NE(host.data[0], 0x44); // inside the frame
    host.command(0xB2);
    host.read(512);
    EXPECT_EQ(host.data[0], 0x44); // at a frame's start again
    EXPECT_EQ(host.frameNumber(), 1u);
    expectOutcome(host.read(1000), Status::overflow, 512, true, "a packet does not fit");
    expectOutcome(host.read(kFrameBytes), Status::ok, kFrameBytes, true, "runs on into the next frame");
    EXPECT_EQ(host.camera.framesSent(), 1u);
    EXPECT_EQ(host.data[kFrameBytes - 1024], 0x44);
    host.read(512);
    host.grab(0);
    expectOutcome(host.read(512), Status::ok, 0, false, "a stop takes the rest of a frame too");
    EXPECT_EQ(host.camera.bulkIn(0x81, host.data, host.now).status, Status::stall);
}

TEST(SimStream, FlushLeavesAResidueThatDrainsWithoutGrabbing)
{
    Host host;
    host.command(0xB4);
    expectOutcome(host.read(kFrameBytes), Status::ok, 2048, false, "no short packet ends it");
    host.command(0xB4);
    expectOutcome(host.read(2048), Status::ok, 2048, true, "drained");
    expectOutcome(host.read(2048), Status::ok, 0, false, "once");
    host.command(0xB4);
    host.command(0xB2);
    EXPECT_EQ(host.read(2048).bytes, 0u);
    EXPECT_EQ(host.camera.framesSent(), 0u);

    host.grab();
    host.now += 150 * kMs; // frame 0 waits, frame 1 is under exposure
    host.command(0xB4);
    EXPECT_EQ(host.read(2048).bytes, 2048u);
    EXPECT_EQ(host.camera.nextBulkIn(host.now), host.now + 50 * kMs);
}

// Two frames of odd bytes, the second 70 ms after the first.
struct Recorded : FrameSource {
    Replay replay(const FrameRequest&, std::span<uint8_t, kFrameBytes> frame) override
    {
        if (next == 2)
            return Replay::end;
        next++;
        for (size_t i = 0; i < kFrameBytes; i++)
            frame[i] = byteOf(next, i);
        return Replay::frame;
    }
    std::optional<TimeUs> interval() const override { return 70 * kMs; }
    void render(const FrameRequest&, std::span<uint16_t, kPixels>, std::span<uint16_t, kPixels>) override {}

    static uint8_t byteOf(size_t frame, size_t i) { return static_cast<uint8_t>(frame * 7 + i * 31 + i / 512); }
    size_t next = 0;
};

TEST(SimReplay, FramesLeaveAsTheyWereAtTheirPaceNoneIsSkippedAndThenTheCameraIsGone)
{
    Config config = configOf(10);
    config.source = std::make_shared<Recorded>();
    config.faults = {{.kind = Fault::Kind::badStartCode, .channel = Channel::bulkIn, .nth = 3}};
    Host host(config);
    host.image[9] = 0xE3; // rows reversed: done already, in what was recorded
    host.image[33] = 100; // the delay is in the pace already
    host.grab();
    const TimeUs started = host.now;
    EXPECT_EQ(host.camera.nextBulkIn(host.now), started + 70 * kMs);
    const auto expectFrame = [&](size_t number) {
        ASSERT_EQ(host.read().bytes, kFrameBytes);
        for (size_t i = 0; i < kFrameBytes; i++)
            ASSERT_EQ(host.data[i], Recorded::byteOf(number, i)) << "frame " << number << ", byte " << i;
    };
    host.now += 70 * kMs * 5; // four more would be complete
    expectFrame(1);
    expectOutcome(host.read(), Status::ok, 0, false, "not before its time");
    EXPECT_EQ(host.camera.nextBulkIn(host.now), host.now + 70 * kMs);
    host.now += 70 * kMs;
    ASSERT_EQ(host.read().bytes, kFrameBytes);
    EXPECT_EQ(host.data[0], 0xBB); // faults act on recorded frames, too
    EXPECT_EQ(host.data[1], Recorded::byteOf(2, 1));
    host.now += 70 * kMs;
    EXPECT_EQ(host.read().status, Status::noDevice);
    EXPECT_FALSE(host.camera.plugged());
    EXPECT_EQ(host.camera.returnsAt(), kNever);
}

TEST(SimFaults, SpoilTheNthMatchingTransferInTheirOwnWay)
{
    using Kind = Fault::Kind;
    const struct {
        const char* what;
        Kind kind;
        Outcome second; // of three
    } cases[] = {
        {"stall", Kind::stall, {Status::stall}},           {"timeout", Kind::timeout, {Status::timeout, 0, false}},
        {"overflow", Kind::overflow, {Status::overflow}},  {"broken line", Kind::ioError, {Status::ioError}},
        {"no memory", Kind::noMemory, {Status::noMemory}}, {"cut", Kind::shortened, {Status::ok, 40}},
    };
    const std::pair<Channel, size_t> channels[] = {
        {Channel::control, 128}, {Channel::bulkOut, kImageBytes}, {Channel::bulkIn, kFrameBytes}};
    for (const auto& c : cases)
        for (const auto& [channel, whole] : channels) {
            Host host(configOf(0));
            host.camera.addFault({.kind = c.kind, .channel = channel, .request = 0xB8, .nth = 2, .bytes = 40});
            const auto expectNext = [&, channel = channel](const Outcome& expected) {
                Bytes eeprom(128);
                const Outcome control = host.ask(0xC0, 0xB8, 0x1200, eeprom);
                const Outcome bulkOut = host.grab();
                const Outcome bulkIn = host.read();
                expectOutcome(channel == Channel::control   ? control
                              : channel == Channel::bulkOut ? bulkOut
                                                            : bulkIn,
                              expected.status, expected.bytes, expected.complete, c.what);
            };
            expectNext({Status::ok, whole});
            expectNext(c.second);
            host.clearHalt(0x02);
            host.clearHalt(0x86);
            expectNext({Status::ok, whole});
            EXPECT_EQ(host.data[0], 0x44) << c.what; // the rest of a cut frame is gone
        }
}

TEST(SimFaults, ABulkEndpointThatStalledDoesSoUntilTheHostFreesIt)
{
    const std::function<void(Host&, uint8_t)> ways[] = {
        [](Host& host, uint8_t endpoint) { host.clearHalt(endpoint); },
        [](Host& host, uint8_t) {
            EXPECT_EQ(host.camera.control({0x00, 9, 1, 0, 0}, {}, host.now).status, Status::ok);
        },
        [](Host& host, uint8_t) {
            EXPECT_EQ(host.camera.control({0x01, 11, 0, 0, 0}, {}, host.now).status, Status::ok);
        },
        [](Host& host, uint8_t) { host.camera.reset(host.now); },
    };
    const auto isHalted = [](Host& host, uint8_t endpoint) {
        Bytes status(2);
        EXPECT_EQ(host.ask(0x82, 0, 0, status, endpoint).status, Status::ok);
        return status == Bytes{1, 0};
    };
    for (const auto& free : ways)
        for (const uint8_t endpoint : {0x02, 0x86}) {
            Host host(configOf(0));
            host.camera.addFault({.channel = endpoint == 0x02 ? Channel::bulkOut : Channel::bulkIn});
            EXPECT_FALSE(isHalted(host, endpoint));
            for (int i = 0; i < 2; ++i) {
                EXPECT_EQ((endpoint == 0x02 ? host.grab() : host.read(2048)).status, Status::stall);
                EXPECT_EQ(host.camera.nextBulkIn(host.now), endpoint == 0x86 ? host.now : kNever);
                EXPECT_TRUE(isHalted(host, endpoint));
                EXPECT_FALSE(isHalted(host, endpoint ^ 0x84)); // the other one
            }
            free(host, endpoint);
            EXPECT_FALSE(isHalted(host, endpoint));
            EXPECT_EQ(host.grab().bytes, kImageBytes);
            EXPECT_EQ(host.read().bytes, kFrameBytes);
        }
}

TEST(SimFaults, ATransferCountsOnceHoweverOftenItIsPolled)
{
    Host host;
    host.camera.addFault({.kind = Fault::Kind::badStartCode, .channel = Channel::bulkIn, .nth = 2, .times = 2});
    host.camera.addFault({.kind = Fault::Kind::timeout, .channel = Channel::bulkIn, .nth = 4, .times = 0});
    host.grab();
    for (const uint8_t start : {0x44, 0xBB, 0xBB}) {
        EXPECT_FALSE(host.read().complete);
        EXPECT_FALSE(host.camera.bulkIn(0x86, host.data, host.now).complete);
        host.now = host.camera.nextBulkIn(host.now);
        EXPECT_TRUE(host.camera.bulkIn(0x86, host.data, host.now).complete);
        EXPECT_EQ(host.data[0], start);
        EXPECT_EQ(host.data[1], 0x33);
    }
    for (int i = 0; i < 3; i++) {
        host.now += 100 * kMs;
        EXPECT_EQ(host.read().status, Status::timeout);
        EXPECT_EQ(host.camera.nextBulkIn(host.now), kNever);
    }
}

TEST(SimFaults, ACutTransferCountsItsBytesAcrossBlocks)
{
    Host host(configOf(0));
    host.camera.addFault({.kind = Fault::Kind::shortened, .channel = Channel::bulkIn, .bytes = 2500});
    host.grab();
    host.command(0xB4); // 2048 bytes, then frames
    expectOutcome(host.read(4096), Status::ok, 2048, false, "the residue");
    const auto rest = std::span(host.data).subspan(2048);
    expectOutcome(host.camera.bulkIn(0x86, rest, host.now), Status::ok, 452, true, "the cut");
    EXPECT_EQ(rest[0], 0x44);
    host.read();
    EXPECT_EQ(host.frameNumber(), 1u); // the rest of the cut frame is gone
}

TEST(SimFaults, ASilentCameraIsLateWithItsFrameAndAnswersNothingElse)
{
    Config config = configOf(10);
    config.faults = {
        {.kind = Fault::Kind::silence, .channel = Channel::any, .backAfter = 2'000 * kMs, .afterFrames = 1}};
    Host host(config);
    host.grab();
    host.now = host.camera.nextBulkIn(host.now);
    EXPECT_EQ(host.read().bytes, kFrameBytes);
    const TimeUs start = host.now;
    expectOutcome(host.read(), Status::ok, 0, false, "frame");
    EXPECT_EQ(host.command(0xB2).status, Status::timeout);
    EXPECT_EQ(host.grab().status, Status::timeout);
    EXPECT_EQ(host.camera.nextBulkIn(host.now), start + 2'000 * kMs);
    host.now = start + 2'000 * kMs;
    EXPECT_EQ(host.camera.bulkIn(0x86, host.data, host.now).bytes, kFrameBytes);
    EXPECT_EQ(host.command(0xB2).status, Status::ok);
}

TEST(SimFaults, StandardRequestsAndOtherRequestsDoNotCount)
{
    Host host;
    host.camera.addFault({.kind = Fault::Kind::stall, .request = 0xB2});
    Bytes language(4);
    EXPECT_EQ(host.ask(0x80, 6, 0x0300, language).status, Status::ok);
    EXPECT_EQ(host.command(0xB3).status, Status::ok);
    EXPECT_EQ(host.command(0xB2).status, Status::stall);
    EXPECT_EQ(host.command(0xB2).status, Status::ok);
}

TEST(SimFaults, AnUnpluggedCameraIsGoneUntilItStartsFromPowerUp)
{
    Host host;
    host.camera.addFault({.kind = Fault::Kind::unplug, .channel = Channel::bulkIn, .nth = 2, .backAfter = 350 * kMs});
    host.grab();
    host.now += 100 * kMs;
    EXPECT_EQ(host.read().status, Status::ok);
    EXPECT_EQ(host.read().status, Status::noDevice);
    EXPECT_FALSE(host.camera.plugged());
    EXPECT_EQ(host.camera.returnsAt(), host.now + 350 * kMs);
    EXPECT_EQ(host.command(0xB2).status, Status::noDevice);
    EXPECT_EQ(host.camera.bulkOut(0x02, host.image, host.now).status, Status::noDevice);
    EXPECT_EQ(host.camera.nextBulkIn(host.now), host.now);

    host.now += 350 * kMs;
    host.camera.plug(host.now);
    EXPECT_EQ(host.camera.returnsAt(), kNever);
    EXPECT_EQ(host.camera.registers, Image{});
    EXPECT_FALSE(host.camera.grabbing());
    host.grab();
    host.now += 100 * kMs;
    EXPECT_EQ(host.read().status, Status::ok); // the plan went on, and its second transfer is over
    EXPECT_EQ(host.frameNumber(), 0u);
    host.camera.plug(host.now); // it is already plugged in
    EXPECT_TRUE(host.camera.grabbing());

    host.camera.addFault({.kind = Fault::Kind::silence, .request = 0xB2});
    EXPECT_EQ(host.command(0xB2).status, Status::timeout);
    host.camera.unplug(host.now);
    EXPECT_EQ(host.camera.returnsAt(), kNever);
    host.camera.plug(host.now);
    EXPECT_EQ(host.command(0xB2).status, Status::ok); // not silent any more
}

TEST(SimRegisters, ShapeTheFrame)
{
    const struct {
        const char* what;
        const char* product;
        std::vector<std::pair<size_t, uint8_t>> bytes;
        int topLeft, bottomRight, amplitude; // depth of two corners, amplitude of the first
    } cases[] = {
        {"nominal", "VQD-HT120", {}, 0, 239 * 64 - 15000 + 63, 100},
        {"columns reversed", "VQD-HT120", {{9, 0xE0}}, 63, 239 * 64 - 15000, 419},
        {"rows reversed", "VQD-HT120", {{9, 0xE3}}, 239 * 64 - 15000, 63, 100},
        {"both reversed", "VQD-HT120", {{9, 0xE1}}, 239 * 64 - 15000 + 63, 0, 419},
        {"a third of the integration time", "VQD-HT120", {{6, 3}}, 0, 359, 33},
        {"range left to the host", "VQD-HT950X", {{20, 1}, {21, 0x68}}, 0, 359, 100},
        {"range from 360", "VQD-RS110", {{20, 1}, {21, 0x68}}, 0, 0, 100},
        {"range from 359", "VQD-RS110", {{20, 1}, {21, 0x67}}, 0, 359, 100},
        {"range to 359", "VQD-RS110", {{22, 1}, {23, 0x67}}, 0, 359, 100},
        {"range to 358", "VQD-RS110", {{22, 1}, {23, 0x66}}, 0, 0, 100},
    };
    for (const auto& c : cases) {
        Host host(configOf(0, c.product));
        for (const auto& [at, value] : c.bytes)
            host.image[at] = value;
        host.grab();
        host.read();
        EXPECT_EQ(host.depth(0, 0), c.topLeft) << c.what;
        EXPECT_EQ(host.depth(239, 319), c.bottomRight) << c.what;
        EXPECT_EQ(host.pixel(0, 0, 0), c.amplitude) << c.what;
    }
}

TEST(SimRegisters, DepthStartsAnewAtTheRangeOfTheFrequency)
{
    Host host(configOf(0));
    const std::pair<uint8_t, int> ranges[] = {{0x00, 15000}, {0x01, 15000}, {0x02, 7500},  {0x03, 5000},
                                              {0x33, 5000},  {0x04, 3750},  {0x44, 3750},  {0x05, 3000},
                                              {0x55, 3000},  {0x06, 2500},  {0x45, 15000}, {0x56, 15000}};
    for (const auto& [code, range] : ranges) {
        host.image[5] = code;
        host.grab();
        host.read();
        EXPECT_EQ(host.depth(200, 10), (200 * 64 + 10) % range) << +code;
    }
}

TEST(SimRegisters, EdgeRemovalTakesBrightPixelsWithAWideSpread)
{
    // At column 63 the ramp restarts, so the 2 x 2 block there spans 127 mm.
    const struct {
        const char* what;
        const char* product;
        uint8_t threshold, spread;
        bool removed;
    } cases[] = {
        {"on", "VQD-RS110", 31, 100, true},
        {"off", "VQD-RS110", 255, 100, false},
        {"the spread is allowed", "VQD-RS110", 31, 127, false},
        {"just not allowed", "VQD-RS110", 31, 126, true},
        {"the usual spread", "VQD-RS110", 31, 0, true},
        {"too dark to judge", "VQD-RS110", 163, 100, false},
        {"just bright enough", "VQD-RS110", 162, 100, true},
        {"left to the host", "VQD-HT120", 31, 100, false},
    };
    for (const auto& c : cases) {
        Host host(configOf(0, c.product));
        host.image[43] = c.threshold;
        host.image[44] = c.spread;
        host.grab();
        host.read();
        EXPECT_EQ(host.depth(10, 63), c.removed ? 0 : 703) << c.what;
        EXPECT_EQ(host.depth(10, 20), 660) << c.what;
    }
}

TEST(SimRegisters, WithoutLightSomeModelsSendDarkFramesUntilTheFifoIsReset)
{
    Config config = configOf(10);
    config.darkFrames = true;
    for (const uint8_t ending : {0xB2, 0xB4}) {
        Host host(config);
        host.grab(0);
        EXPECT_EQ(host.camera.nextBulkIn(host.now), kNever); // never started
        host.grab(1);
        host.grab(0);
        EXPECT_FALSE(host.camera.grabbing());
        host.now += 100 * kMs;
        ASSERT_EQ(host.read().bytes, kFrameBytes);
        for (size_t column = 0; column < 320; column++) {
            EXPECT_LT(host.pixel(0, 100, column), 4);
            EXPECT_EQ(host.depth(100, column), 0);
        }
        host.grab(1);
        host.now += 100 * kMs;
        host.read();
        EXPECT_EQ(host.depth(100, 0), 6400); // lit again
        host.grab(0);
        host.command(ending);
        host.read(2048);
        EXPECT_EQ(host.camera.nextBulkIn(host.now), kNever);
    }
}

} // namespace
