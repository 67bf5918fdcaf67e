// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The parts of a worker that need neither a camera nor a process: messages, what is sent to a reader next, and when a
// camera's process is started again.
#include <thread>

#include <gtest/gtest.h>

#include "host/failure.h"
#include "host/host_time.h"
#include "worker/kept_process.h"
#include "worker/outbox.h"
#include "worker/requests.h"
#include "worker/restart_rule.h"
#include "worker/worker_state.h"

namespace
{

using namespace std::chrono_literals;

void append(Bytes& stream, const Message& message)
{
    const auto* const prefix = reinterpret_cast<const uint8_t*>(&message.prefix);
    stream.insert(stream.end(), prefix, prefix + sizeof message.prefix);
    stream.insert(stream.end(), message.body->begin(), message.body->end());
}

// What comes out of a reader that gets the stream in parts of this size; after a failure its text.
std::vector<std::string> read(const Bytes& stream, size_t part, uint32_t most = 1000)
{
    MessageReader reader(most);
    std::vector<std::string> texts;
    try {
        for (size_t done = 0; done < stream.size(); done += part) {
            const size_t size = std::min(part, stream.size() - done);
            std::copy_n(stream.begin() + static_cast<std::ptrdiff_t>(done), size, reader.space().begin());
            reader.came(size);
            while (const std::optional<Received> message = reader.next())
                texts.push_back(std::to_string(message->prefix.kind) + ' ' + std::to_string(message->prefix.request) +
                                ' ' + std::string(message->text()));
        }
        if (!reader.empty())
            texts.emplace_back("cut");
    } catch (const Failure& failure) {
        texts.emplace_back(failure.what());
    }
    return texts;
}

TEST(Messages, AreTheSameHoweverTheStreamIsCut)
{
    Bytes stream;
    append(stream, messageOf(VQD_WIRE_STATE, "{}"));
    append(stream, messageOf(VQD_WIRE_EVENT, ""));
    append(stream, messageOf(VQD_WIRE_REPLY, std::string(999, 'x'), 77));
    const Bytes start{'V', 'Q', 'D', 'W', 1, 0, 1, 0, 2, 0, 0, 0, 0, 0, 0, 0, '{', '}'};
    EXPECT_TRUE(std::equal(start.begin(), start.end(), stream.begin()));
    const std::vector<std::string> expected{"1 0 {}", "4 0 ", "6 77 " + std::string(999, 'x')};
    for (const size_t part : {1, 15, 16, 17, 1000, 5000})
        EXPECT_EQ(read(stream, part), expected) << part;
    stream.pop_back();
    EXPECT_EQ(read(stream, 64).back(), "cut");
}

TEST(Messages, WhatIsNoMessageIsRefusedByItsPrefixAlone)
{
    const struct {
        size_t offset;
        uint8_t value;
        const char* why;
    } cases[] = {
        {0, 'v', "this is not the wire of a camera's worker"},
        {4, 2, "this end speaks version 1 of the wire, not 2"},
        {4, 0, "this end speaks version 1 of the wire, not 0"},
        {11, 0x40, "a message of 1073741826 bytes is announced, but no more than 1000 are taken"},
    };
    for (const auto& c : cases) {
        Bytes stream;
        append(stream, messageOf(VQD_WIRE_STATE, "{}"));
        stream[c.offset] = c.value;
        stream.resize(sizeof(vqd_wire_prefix));
        EXPECT_EQ(read(stream, 1), std::vector<std::string>{c.why});
    }
}

TEST(Messages, AFrameHasJustTheBytesThatItsHeaderSays)
{
    vqd_wire_frame header{};
    header.width = 4;
    header.height = 3;
    header.plane_bytes = 48;
    const Bytes planes(48, 7);
    Bytes body;
    appendFrame(body, header, {planes});
    EXPECT_EQ(frameIn(body).planes.size(), 48u);
    const auto isRefused = [&](uint32_t flags, uint32_t says, size_t holds) {
        header.flags = flags;
        header.plane_bytes = says;
        Bytes other;
        appendFrame(other, header, {std::span(planes).first(holds)});
        try {
            frameIn(other);
            return false;
        } catch (const Failure&) {
            return true;
        }
    };
    EXPECT_FALSE(isRefused(VQD_WIRE_PACKED, 20, 20));
    EXPECT_TRUE(isRefused(0, 20, 20));
    EXPECT_TRUE(isRefused(0, 48, 20));
    EXPECT_TRUE(isRefused(VQD_WIRE_PACKED, 20, 19));
    EXPECT_THROW(frameIn(std::span(body).first(95)), Failure);
    EXPECT_THROW(pullIn(std::span(body).first(17)), Failure);
}

class ReaderOf : public testing::Test
{
protected:
    void frame(uint64_t sequence)
    {
        latest.set(sequence, std::make_shared<const Bytes>(1, static_cast<uint8_t>(sequence)));
    }

    // "kind request first-byte"
    std::string next()
    {
        const std::optional<Message> message = outbox.next(latest);
        return !message ? ""
                        : std::to_string(message->prefix.kind) + ' ' + std::to_string(message->prefix.request) + ' ' +
                              std::to_string(message->body->at(0));
    }

    int packings = 0;
    LatestFrame latest{[this](const Body& frame) {
        ++packings;
        return std::make_shared<const Bytes>(1, static_cast<uint8_t>(100 + frame->at(0)));
    }};
    Outbox outbox;
};

TEST_F(ReaderOf, GetsOneFrameForEachPullAndTheNewest)
{
    frame(1);
    EXPECT_EQ(next(), "") << "nobody has asked";
    outbox.pull(5, {0, 0, 0});
    EXPECT_EQ(next(), "2 5 1");
    EXPECT_EQ(next(), "") << "it was asked for once";
    outbox.pull(6, {1, 0, 0});
    EXPECT_EQ(next(), "") << "it has this frame";
    frame(2);
    frame(3);
    EXPECT_EQ(next(), "2 6 3");
    outbox.pull(7, {3, 0, 0});
    outbox.pull(8, {0, 0, 0});
    EXPECT_EQ(next(), "2 8 3") << "in place of the earlier pull";
    frame(4);
    EXPECT_EQ(next(), "");
}

TEST_F(ReaderOf, SharesOnePackingOfEachFrameWithOthers)
{
    Outbox other;
    for (const int sequence : {1, 2}) {
        frame(static_cast<uint64_t>(sequence));
        outbox.pull(1, {0, VQD_WIRE_PACKED, 0});
        EXPECT_EQ(next(), "2 1 " + std::to_string(100 + sequence));
        other.pull(1, {0, VQD_WIRE_PACKED, 0});
        EXPECT_TRUE(other.next(latest));
        EXPECT_EQ(packings, sequence);
    }
    outbox.pull(2, {0, 0, 0});
    EXPECT_EQ(next(), "2 2 2") << "packing is asked for frame by frame";
}

TEST_F(ReaderOf, SmallMessagesGoFirstAndNotWithoutLimit)
{
    frame(1);
    outbox.pull(1, {0, 0, 0});
    for (int i = 0; i < 64; ++i)
        EXPECT_TRUE(outbox.add(messageOf(VQD_WIRE_EVENT, "e")));
    EXPECT_FALSE(outbox.add(messageOf(VQD_WIRE_EVENT, "e")));
    for (int i = 0; i < 64; ++i)
        EXPECT_EQ(next(), "4 0 101");
    EXPECT_EQ(next(), "2 1 1");
}

TEST(RequestQueue, TakesNoMoreThanACameraThatAnswersEverLeaves)
{
    RequestQueue queue;
    for (uint32_t i = 0; i < 64; ++i)
        EXPECT_TRUE(queue.add({i, 0, {}})); // each of another reader, all of which may have gone
    EXPECT_FALSE(queue.add({64, 0, {}}));
    EXPECT_EQ(queue.takeAll().size(), 64u);
    EXPECT_TRUE(queue.add({64, 0, {}}));
}

TEST(BackOff, DoublesFromHalfASecondToThirty)
{
    BackOff backOff;
    for (const std::chrono::milliseconds pause : {500ms, 1000ms, 2000ms, 4000ms, 8000ms, 16000ms, 30000ms, 30000ms})
        EXPECT_EQ(backOff.next(), pause);
    backOff.forgive();
    EXPECT_EQ(backOff.next(), 500ms);
}

TEST(KeptProcess, StartsAnewHalfASecondAfterItsFirstEnd)
{
    KeptProcess process("/bin/true", {"true"});
    const KeptProcess::Clock::time_point start(1h);
    EXPECT_TRUE(process.start(start));
    EXPECT_FALSE(process.start(start + 1min)); // it runs, or has not been looked after
    while (!process.ended(start))
        std::this_thread::yield();
    EXPECT_FALSE(process.start(start + 499ms));
    EXPECT_TRUE(process.start(start + 500ms));
}

class Restart : public testing::Test
{
protected:
    bool mayStart(std::chrono::milliseconds at) const
    {
        return rule.mayStart(RestartRule::Time(at), attached, [](const Place&) { return locked; });
    }
    void ended(std::chrono::milliseconds at, std::chrono::seconds withFrames = 0s, std::optional<Place> lockedAt = {})
    {
        rule.ended(RestartRule::Time(at), {withFrames, lockedAt}, attached);
    }

    static inline bool locked = false;
    RestartRule rule{""};
    std::vector<Place> attached{{1, 2, "1-1"}};
};

TEST_F(Restart, WaitsForACameraAndForTheOneAtItsPort)
{
    const RestartRule atPort("1-2.3");
    const auto portMayStart = [&] { return atPort.mayStart({}, attached, [](const Place&) { return false; }); };
    EXPECT_TRUE(mayStart(0s));
    EXPECT_FALSE(portMayStart());
    attached.push_back({1, 9, "1-2.3"});
    EXPECT_TRUE(portMayStart());
    attached.clear();
    EXPECT_FALSE(mayStart(0s));
}

TEST_F(Restart, PausesGrowUntilFramesCameForHalfAMinute)
{
    ended(10s);
    EXPECT_FALSE(mayStart(10'499ms));
    EXPECT_TRUE(mayStart(10'500ms));
    ended(20s, 29s);
    EXPECT_FALSE(mayStart(20'999ms));
    EXPECT_TRUE(mayStart(21s));
    ended(30s, 30s);
    EXPECT_TRUE(mayStart(30'500ms));
}

TEST_F(Restart, APauseEndsWhenACameraComes)
{
    ended(10s);
    attached.clear();
    EXPECT_FALSE(mayStart(10'100ms));
    attached.push_back({1, 3, "1-1"}); // the same port, a new address
    EXPECT_TRUE(mayStart(10'200ms));
}

TEST_F(Restart, ALockedCameraIsTakenAsSoonAsItIsFree)
{
    locked = true;
    ended(10s, 0s, attached[0]);
    EXPECT_FALSE(mayStart(10min));
    locked = false;
    EXPECT_TRUE(mayStart(10'100ms));
}

TEST(ClockWatch, TellsAStepFromSlewAndFromWaiting)
{
    constexpr int64_t kMs = 1'000'000;
    ClockWatch watch;
    const struct {
        int64_t real, monotonic;
        double step;
    } cases[] = {
        {1'000'000, 500, 0},       // the first
        {1'000'033, 533, 0},       //
        {1'000'075, 566, 0},       // 9 ms late between the clocks
        {1'000'099, 599, 0},       //
        {1'060'349, 60'599, 0.25}, // set ahead within a minute
        {1'120'373, 120'599, 0},   // 24 ms in a minute: slewed
        {1'120'000, 120'632, -0.406},
    };
    for (const auto& c : cases)
        EXPECT_NEAR(watch.step({c.real * kMs, c.monotonic * kMs}).value_or(0), c.step, 1e-9) << c.monotonic;
}

TEST(RecentRate, IsThatOfTheLastTwoSecondsAndZeroInSilence)
{
    constexpr int64_t kMs = 1'000'000;
    RecentRate rate;
    EXPECT_EQ(rate.at(0), 0);
    for (int64_t t = 0; t <= 10'000; t += 100)
        rate.add(t * kMs);
    for (int64_t t = 10'050; t <= 12'000; t += 50)
        rate.add(t * kMs);
    EXPECT_NEAR(rate.at(12'001 * kMs), 20, 1e-9);
    EXPECT_EQ(rate.at(13'001 * kMs), 0);
}

} // namespace
