// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Of two and of ten streaming cameras some vanish, in any phase and order, and come back in any order and on new
// addresses. Each ends under its own number, and the others notice nothing.
#include <algorithm>
#include <cstring>
#include <random>

#include "support/library_test.h"
#include "support/marked_source.h"

namespace
{

enum class Phase { listed, opened, streaming, inTransfer, whenFoundAgain, kCount };

class Unplugging : public LibraryTest
{
protected:
    // The cameras of this round by device number, because a fresh bus lists them in the order of plugging in.
    void plugAll(int cameras)
    {
        m_first = m_ports;
        for (int n = 0; n < cameras; ++n) {
            sim::Config config;
            config.product = "VQD-HT110";
            config.framesPerSecond = 0;
            config.serial = {1, 1, 1, 1, 1, 1, static_cast<uint8_t>(n + 1)};
            config.source = std::make_shared<Marked>(markOf(n));
            m_ports = usb.plug(config) + 1;
        }
        m_frames.assign(static_cast<size_t>(cameras), 0);
        ASSERT_EQ(list(), cameras);
        m_nUndistortionMode = 0;
    }

    static uint16_t markOf(int n) { return static_cast<uint16_t>(1000 + 100 * n); }
    size_t port(int n) const { return m_first + static_cast<size_t>(n); }

    int read(int n)
    {
        int result = 0;
        printed([&] { result = vqdReadFromDevice(n, images.data(), &info); });
        return result;
    }

    // The next frame of the camera that was listed as n, without a gap.
    void expectNextFrame(int n)
    {
        ASSERT_EQ(read(n), 1) << n;
        const uint64_t frame = frameInBuffer();
        EXPECT_EQ(Marked(markOf(n)).wrongPixels(frame, amplitude.data(), depth.data()), 0u) << n;
        EXPECT_EQ(frame, m_frames[static_cast<size_t>(n)]++) << n;
    }

    void open(int n)
    {
        printed([&] { EXPECT_EQ(vqdDeviceOpen(n), 1); });
    }
    void start(int n)
    {
        printed([&] { EXPECT_EQ(vqdGrabStart(n), 1); });
    }

    // Makes the camera of number n vanish; it is not back yet.
    void lose(int n, Phase phase)
    {
        sim::Camera& camera = usb.camera(port(n));
        if (phase != Phase::inTransfer)
            usb.unplug(port(n));
        else
            camera.addFault({.kind = sim::Fault::Kind::unplug, .channel = sim::Channel::bulkIn});
        if (phase == Phase::whenFoundAgain) // and once more, in the middle of being re-opened
            camera.addFault({.kind = sim::Fault::Kind::unplug, .request = 0xB2, .backAfter = 200'000});
        if (phase == Phase::inTransfer || m_random() % 3 == 0) { // noticed while it is away
            m_nReopenTime = 502;
            EXPECT_EQ(read(n), -3);
            m_nReopenTime = 600;
        }
    }

    // Reads until the camera delivers again. Its frames must be its own, from the first one after power-up.
    void recover(int n)
    {
        int tries = 0;
        while (read(n) != 1 && ++tries < 4) // a re-open delivers an old frame
            m_nReopenTime = 600;
        ASSERT_LT(tries, 4) << n;
        ASSERT_EQ(read(n), 1);
        m_frames[static_cast<size_t>(n)] = frameInBuffer() + 1;
    }

    void round(int cameras, Phase phase)
    {
        plugAll(cameras);
        std::vector<int> order(static_cast<size_t>(cameras));
        for (int n = 0; n < cameras; ++n)
            order[static_cast<size_t>(n)] = n;
        const auto shuffle = [&](std::vector<int>& numbers) { std::shuffle(numbers.begin(), numbers.end(), m_random); };
        shuffle(order);
        std::vector<int> lost(order.begin(), order.begin() + 1 + static_cast<int>(m_random() % order.size()));
        const auto isLost = [&](int n) { return std::find(lost.begin(), lost.end(), n) != lost.end(); };

        for (const int n : order)
            if (phase != Phase::listed || !isLost(n))
                open(n);
        for (const int n : order)
            if (phase >= Phase::streaming || !isLost(n))
                start(n);
        for (const int n : order)
            if (phase >= Phase::streaming || !isLost(n))
                expectNextFrame(n);

        for (const int n : lost)
            lose(n, phase);
        for (const int n : order)
            if (!isLost(n))
                expectNextFrame(n);

        shuffle(lost);
        for (const int n : lost)
            usb.replug(port(n));
        shuffle(lost);
        shuffle(order);
        for (const int n : lost) {
            recover(n);
            for (const int other : order)
                if (!isLost(other))
                    expectNextFrame(other);
        }
        for (const int n : order)
            expectNextFrame(n);
        endRound(cameras);
    }

    void endRound(int cameras)
    {
        EXPECT_EQ(usb.openHandles(), cameras);
        EXPECT_EQ(m_nDeviceCount, cameras);
        for (int n = 0; n < cameras; ++n) {
            printed([&] { EXPECT_EQ(vqdDeviceClose(n), 1); });
            usb.unplug(port(n));
        }
        EXPECT_EQ(usb.openHandles() + usb.listsHeld + usb.contextUses + usb.configurationsHeld, 0);
        EXPECT_EQ(usb.violations, std::vector<std::string>{});
        usb.conversation();
    }

    size_t m_first = 0, m_ports = 0;
    std::vector<uint64_t> m_frames; // the number of each camera's next frame
    std::mt19937 m_random{20261124};
};

TEST_F(Unplugging, EachCameraComesBackUnderItsNumberAndTheOthersLoseNoFrame)
{
    for (const int cameras : {2, 10})
        for (int i = 0; i < 10 * static_cast<int>(Phase::kCount); ++i) {
            const auto phase = static_cast<Phase>(i % static_cast<int>(Phase::kCount));
            SCOPED_TRACE(testing::Message() << cameras << " cameras, round " << i);
            round(cameras, phase);
            if (HasFailure())
                return;
        }
}

} // namespace
