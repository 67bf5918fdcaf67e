// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The camera on the USB/IP wire, without a kernel. Messages are put together word by word, as the kernel's
// documentation of the protocol has them.
#include <gtest/gtest.h>

#include <optional>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "usbip_link.h"

using namespace sim;

namespace
{

using Bytes = std::vector<uint8_t>;

constexpr uint32_t kOut = 0, kIn = 1;

// Words, then bytes as they are.
Bytes message(std::initializer_list<uint32_t> words, size_t header, const Bytes& rest = {})
{
    Bytes bytes;
    for (const uint32_t word : words)
        for (const int shift : {24, 16, 8, 0})
            bytes.push_back(static_cast<uint8_t>(word >> shift & 0xFF));
    bytes.resize(header);
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    return bytes;
}

Bytes operator+(Bytes first, const Bytes& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

// What the host says.
Bytes submit(uint32_t number, uint32_t direction, uint32_t endpoint, uint32_t length, const Bytes& setup = Bytes(8))
{
    return message({1, number, 0x10002, direction, endpoint, 0x200, length, 0, 0xFFFFFFFF}, 40, setup);
}
Bytes unlink(uint32_t number, uint32_t unlinked)
{
    return message({2, number, 0x10002, 0, 0, unlinked}, 48);
}
const Bytes kEepromRead{0xC0, 0xB8, 0x00, 0x12, 0, 0, 128, 0};

// What the camera says.
Bytes submitted(uint32_t number, int status, uint32_t bytes, const Bytes& data = {})
{
    return message({3, number, 0, 0, 0, static_cast<uint32_t>(status), bytes}, 48, data);
}
Bytes unlinked(uint32_t number, int status)
{
    return message({4, number, 0, 0, 0, static_cast<uint32_t>(status)}, 48);
}

class UsbipLinkTest : public testing::Test
{
protected:
    UsbipLinkTest() { connect({}); }
    ~UsbipLinkTest() override { close(host); }

    void connect(const Config& config)
    {
        close(host);
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        host = ends[0];
        link.reset();
        link.emplace(camera.emplace(config), ends[1]);
    }
    bool send(const Bytes& bytes)
    {
        EXPECT_EQ(::send(host, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
        return link->serve(now);
    }
    Bytes answers()
    {
        Bytes bytes(1 << 20);
        size_t got = 0;
        for (ssize_t count = 0; got < bytes.size() && count >= 0;
             got += static_cast<size_t>(std::max<ssize_t>(count, 0))) {
            link->serve(now);
            count = recv(host, bytes.data() + got, bytes.size() - got, MSG_DONTWAIT);
        }
        bytes.resize(got);
        return bytes;
    }
    Bytes answersTo(const Bytes& bytes)
    {
        send(bytes);
        return answers();
    }
    void grab()
    {
        const Bytes takeImage{0x40, 0xB1, 0, 0, 0, 0, 64, 0};
        EXPECT_EQ(answersTo(submit(90, kOut, 0, 64, takeImage) + Bytes(64)), submitted(90, 0, 64));
        Bytes image(512);
        image[11] = 1;
        EXPECT_EQ(answersTo(submit(91, kOut, 2, 512) + image), submitted(91, 0, 512));
    }

    std::optional<Camera> camera;
    std::optional<UsbipLink> link;
    int host = -1;
    TimeUs now = 1'000'000;
};

TEST_F(UsbipLinkTest, ControlTransfersCarryTheirDataBothWays)
{
    EXPECT_EQ(answersTo(submit(7, kIn, 0, 128, kEepromRead)),
              submitted(7, 0, 128, Bytes(camera->eeprom.begin(), camera->eeprom.end())));
    Bytes content(128);
    content[5] = 0x5A;
    EXPECT_EQ(answersTo(submit(8, kOut, 0, 128, {0x40, 0xB7, 0x00, 0x12, 0, 0, 128, 0}) + content),
              submitted(8, 0, 128));
    EXPECT_EQ(camera->eeprom[5], 0x5A);
    EXPECT_EQ(answersTo(submit(9, kIn, 0, 255, {0x80, 6, 0, 3, 9, 4, 255, 0})), submitted(9, 0, 4, {4, 3, 9, 4}));
    EXPECT_EQ(answersTo(submit(10, kIn, 0, 255, {0x80, 6, 9, 3, 9, 4, 255, 0})), submitted(10, -EPIPE, 0));
}

TEST_F(UsbipLinkTest, FramesComeWhenTheCameraHasThemAndInOrder)
{
    grab();
    EXPECT_EQ(link->nextDue(now), kNever);
    EXPECT_EQ(answersTo(submit(1, kIn, 6, 307712) + submit(2, kIn, 6, 307712)), Bytes());
    for (const uint32_t number : {1u, 2u}) {
        EXPECT_EQ(link->nextDue(now), now + 33'333);
        now = link->nextDue(now);
        const Bytes answer = answers();
        ASSERT_EQ(answer.size(), 48u + 307712u);
        EXPECT_EQ(Bytes(answer.begin(), answer.begin() + 48), submitted(number, 0, 307712));
        EXPECT_EQ(Bytes(answer.begin() + 48, answer.begin() + 50), (Bytes{0x44, 0x33}));
        EXPECT_EQ(answer[48 + 16], number - 1); // frame number
    }
    // The kernel tells of a port reset by configuring the camera anew.
    EXPECT_EQ(answersTo(submit(3, kOut, 0, 0, {0, 9, 1, 0, 0, 0, 0, 0})), submitted(3, 0, 0));
    EXPECT_FALSE(camera->grabbing());
}

TEST_F(UsbipLinkTest, AnUnlinkedTransferGivesBackWhatItGotAndEatsNoMore)
{
    EXPECT_EQ(answersTo(submit(1, kIn, 6, 4096) + submit(2, kIn, 6, 4096)), Bytes());
    EXPECT_EQ(answersTo(unlink(3, 2)), unlinked(3, -ECONNRESET));
    EXPECT_EQ(answersTo(submit(4, kOut, 0, 64, {0x40, 0xB4, 0, 0, 0, 0, 64, 0}) + Bytes(64)),
              submitted(4, 0, 64)); // 2048 bytes are there now
    EXPECT_EQ(answersTo(unlink(5, 1)), submitted(1, -ECONNRESET, 2048, Bytes(2048)) + unlinked(5, 0));
    EXPECT_EQ(answersTo(unlink(6, 1)), unlinked(6, 0)); // it has ended
    grab();
    EXPECT_EQ(answersTo(submit(7, kIn, 6, 512)), Bytes());
    now = link->nextDue(now);
    EXPECT_EQ(answers().size(), 48u + 512u);
}

TEST_F(UsbipLinkTest, FaultsOfThePlanReachTheHost)
{
    using Kind = Fault::Kind;
    const struct {
        Kind kind;
        int status;
    } cases[] = {{Kind::stall, -EPIPE}, {Kind::overflow, -EOVERFLOW}, {Kind::ioError, -EPROTO}};
    uint32_t number = 0;
    for (const auto& c : cases)
        for (const Channel channel : {Channel::control, Channel::bulkIn, Channel::bulkOut}) {
            camera->reset(now);
            camera->addFault({.kind = c.kind, .channel = channel});
            const bool control = channel == Channel::control, in = channel == Channel::bulkIn;
            const Bytes asked = control ? submit(++number, kIn, 0, 128, kEepromRead)
                                : in    ? submit(++number, kIn, 6, 512)
                                        : submit(++number, kOut, 2, 512) + Bytes(512);
            EXPECT_EQ(answersTo(asked), submitted(number, c.status, 0));
        }
    camera->addFault({.kind = Kind::timeout});
    EXPECT_EQ(answersTo(submit(50, kIn, 0, 128, kEepromRead)), Bytes());
    EXPECT_EQ(answersTo(unlink(51, 50)), unlinked(51, -ECONNRESET));
    camera->addFault({.kind = Kind::unplug});
    EXPECT_EQ(answersTo(submit(52, kIn, 0, 128, kEepromRead)), Bytes());
    EXPECT_FALSE(camera->plugged()); // who made the link ends it
}

TEST_F(UsbipLinkTest, WhatIsNotUsbipEndsTheLink)
{
    const std::pair<const char*, Bytes> cases[] = {
        {"an answer", message({3, 1}, 48)},
        {"an import", message({0x01118003, 1}, 48)},
        {"no direction", submit(1, 2, 0, 0)},
        {"a negative length", submit(1, kIn, 6, 0x80000000)},
        {"an isochronous transfer", message({1, 1, 0, kIn, 6, 0, 512, 0, 8, 1}, 48)},
    };
    for (const auto& [what, bytes] : cases) {
        connect({});
        EXPECT_TRUE(link->serve(now)) << what;
        EXPECT_FALSE(send(bytes)) << what;
    }
}

TEST_F(UsbipLinkTest, AHostThatGoesEndsTheLink)
{
    EXPECT_TRUE(send(submit(1, kIn, 6, 307712)));
    EXPECT_TRUE(send({0, 0, 0, 1}));
    shutdown(host, SHUT_RDWR);
    EXPECT_FALSE(link->serve(now));
}

TEST_F(UsbipLinkTest, TooLongTransfersAreRefusedAndTheNextOneIsUnderstood)
{
    EXPECT_EQ(answersTo(submit(1, kIn, 6, 0x7FFFFFFF)), submitted(1, -ENOMEM, 0));
    EXPECT_EQ(answersTo(submit(2, kOut, 2, (16 << 20) + 1)), submitted(2, -ENOMEM, 0));
    for (int i = 0; i < 256; ++i)
        EXPECT_EQ(answersTo(Bytes(65536, 1)), Bytes());
    EXPECT_EQ(answersTo(Bytes(1, 1)), Bytes());
    // Byte by byte, and on endpoints that the camera does not have.
    for (const uint8_t byte : submit(3, kIn, 1, 64))
        EXPECT_TRUE(send({byte}));
    EXPECT_EQ(answers(), submitted(3, -EPIPE, 0));
    EXPECT_EQ(answersTo(submit(4, kOut, 6, 2) + Bytes(2)), submitted(4, -EPIPE, 0));
}

TEST_F(UsbipLinkTest, AHostThatDoesNotReadIsNotHeard)
{
    Config config;
    config.framesPerSecond = 0; // a frame is always ready
    connect(config);
    grab();
    for (uint32_t number = 0; number < 100; ++number)
        EXPECT_TRUE(send(submit(number, kIn, 6, 307712)));
    EXPECT_LT(camera->framesSent(), 8u);
    EXPECT_EQ(link->events(), POLLOUT);
    size_t got = 0;
    for (size_t more = 1; more > 0; got += more)
        more = answers().size();
    EXPECT_EQ(got, 100 * (48u + 307712u));
    EXPECT_EQ(camera->framesSent(), 100u);
    EXPECT_EQ(link->events(), POLLIN);
}

} // namespace
