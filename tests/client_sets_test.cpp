// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Sets of frames by nearest time: the judgement on times alone, and what a client makes of it. Times lie an hour ahead,
// so that no frame is ever too old, or certain by the passing of time, however slow this machine is.
#include <fcntl.h>

#include <gtest/gtest.h>

extern "C" {
#include "worker/client/client.h"
}
#include "worker/client/nearest.h"

#include "support/fake_worker.h"

namespace
{

constexpr int64_t kMs = 1'000'000;

TEST(Nearest, IsTheFrameNearestToTheLeadingOneAsSoonAsThatIsCertain)
{
    struct Camera {
        std::vector<int> times;
        int interval;
    };
    const struct {
        const char* what;
        std::vector<Camera> cameras;
        int now;
        std::vector<int> chosen; // empty: none yet
        int until, skew;
    } cases[] = {
        {"one camera: its frames in turn", {{{5, 38}, 33}}, 39, {0}, 0, 0},
        {"nothing from one", {{{5}, 33}, {{}, 33}}, 500, {}, 0, 0},
        {"the frame after is nearer", {{{0, 33}, 33}, {{30}, 33}}, 34, {1, 0}, 0, 3},
        {"the frame before is nearer", {{{0, 33}, 33}, {{10}, 33}}, 34, {0, 0}, 0, 10},
        {"as near before as after: before", {{{0, 20}, 20}, {{10}, 20}}, 34, {0, 0}, 0, 10},
        {"the next cannot come early enough", {{{0}, 33}, {{8}, 33}}, 8, {0, 0}, 0, 8},
        {"the next may be nearer", {{{0}, 33}, {{9}, 33}}, 25, {}, 26, 0},
        {"the next would have come", {{{0}, 33}, {{9}, 33}}, 26, {0, 0}, 26, 9},
        {"of an unknown interval", {{{0}, 0}, {{1}, 33}}, 9, {}, 10, 0},
        {"two frames before the leading one", {{{0, 16}, 16}, {{20}, 33}}, 21, {1, 0}, 0, 4},
        {"three: the last of the first leads", {{{0, 33}, 33}, {{12, 45}, 33}, {{25}, 33}}, 46, {1, 0, 0}, 0, 21},
        {"a camera that was away for long", {{{200, 233, 266, 299}, 33}, {{270}, 33}}, 300, {2, 0}, 0, 4},
    };
    for (const auto& [what, cameras, now, expected, until, skew] : cases) {
        std::vector<vqdc_times> times;
        for (const Camera& camera : cameras) {
            vqdc_times one{};
            for (const int time : camera.times)
                one.times[one.count++] = time * kMs;
            one.interval = camera.interval * kMs;
            times.push_back(one);
        }
        std::vector<int> chosen(cameras.size());
        int64_t askAgain = 0;
        const int count = static_cast<int>(cameras.size());
        EXPECT_EQ(vqdc_nearest(times.data(), count, now * kMs, chosen.data(), &askAgain), !expected.empty()) << what;
        if (until != 0) {
            EXPECT_EQ(askAgain, until * kMs) << what;
        }
        if (expected.empty())
            continue;
        EXPECT_EQ(chosen, expected) << what;
        EXPECT_EQ(vqdc_skew(times.data(), count, chosen.data()), skew * kMs) << what;
    }
}

// Two clients, whose other ends are `m_peers`.
class Sets : public testing::Test
{
protected:
    void SetUp() override
    {
        for (int i = 0; i < 2; ++i) {
            int ends[2];
            ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
            ASSERT_EQ(fcntl(ends[0], F_SETFL, O_NONBLOCK), 0);
            m_clients[i] = vqdc_client_new(i == 0 ? "/nowhere/one" : "/nowhere/two");
            vqdc_adopt(m_clients[i], ends[0]);
            m_peers[i] = ends[1];
            fake::put(m_peers[i], fake::state());
        }
        m_sets = vqd_client_sets_open(m_clients, 2, &m_error);
        ASSERT_NE(m_sets, nullptr) << m_error.text;
        EXPECT_EQ(next(), VQD_CLIENT_TIMEOUT); // both clients have asked for a frame now
    }
    void TearDown() override
    {
        vqd_client_sets_close(m_sets);
        for (int i = 0; i < 2; ++i) {
            vqd_client_close(m_clients[i]);
            if (m_peers[i] >= 0)
                close(m_peers[i]);
        }
    }

    int next() { return vqd_client_sets_next(m_sets, 0, m_frames, &m_skew, &m_error); }

    // Answers the pull of a client with a frame at so many ms of the hour ahead.
    void frame(int client, uint64_t sequence, int64_t ms)
    {
        const auto asked = fake::take(m_peers[client]);
        ASSERT_EQ(asked->after(), sequence - 1);
        fake::put(m_peers[client],
                  fake::Frame{.sequence = sequence, .time = m_hourAhead + ms * kMs}.answer(asked->prefix.request));
    }

    vqd_client* m_clients[2] = {};
    int m_peers[2] = {-1, -1};
    vqd_client_sets* m_sets = nullptr;
    vqd_client_frame m_frames[2] = {};
    int64_t m_skew = -1, m_hourAhead = vqdc_now() + 3'600'000 * kMs;
    vqd_client_error m_error{};
};

TEST_F(Sets, HoldTheNearestFramesAndNoneTwice)
{
    frame(0, 1, 0);
    frame(1, 1, 30);
    EXPECT_EQ(next(), VQD_CLIENT_TIMEOUT) << "the first camera's next frame may be nearer";
    EXPECT_STREQ(m_error.text, "no set came within 0 ms");
    frame(0, 2, 33);
    ASSERT_EQ(next(), VQD_CLIENT_OK) << m_error.text;
    EXPECT_EQ(m_skew, 3 * kMs);
    EXPECT_EQ(m_frames[0].sequence, 2u);
    EXPECT_EQ(m_frames[1].sequence, 1u);
    const vqd_client_frame held = m_frames[0];
    EXPECT_EQ(next(), VQD_CLIENT_TIMEOUT);
    frame(1, 2, 63);
    EXPECT_EQ(next(), VQD_CLIENT_TIMEOUT);
    EXPECT_STREQ(m_error.text, "/nowhere/one: no frame came within 0 ms");
    EXPECT_EQ(held.depth[95], 97) << "what was delivered stays until the next set";
    frame(0, 3, 66);
    ASSERT_EQ(next(), VQD_CLIENT_OK);
    EXPECT_EQ(m_frames[0].sequence, 3u);
    EXPECT_EQ(m_frames[1].sequence, 2u);
    EXPECT_EQ(m_frames[1].depth[0], 2);
}

TEST_F(Sets, GoOnWhereTheyWereWhenACameraWasAway)
{
    for (const int ms : {0, 33, 66, 99, 132, 165}) { // more than are kept
        frame(0, 1 + static_cast<uint64_t>(ms / 33), ms);
        EXPECT_EQ(next(), VQD_CLIENT_TIMEOUT);
    }
    frame(1, 1, 130);
    ASSERT_EQ(next(), VQD_CLIENT_OK);
    EXPECT_EQ(m_frames[0].sequence, 5u);
    EXPECT_EQ(m_skew, 2 * kMs);
    close(m_peers[1]);
    m_peers[1] = -1;
    EXPECT_EQ(next(), VQD_CLIENT_LOST);
    EXPECT_STREQ(m_error.text, "/nowhere/two: the worker has ended the connection");
    EXPECT_EQ(next(), VQD_CLIENT_TIMEOUT) << "it is told once";
    frame(0, 7, 198);
    EXPECT_EQ(next(), VQD_CLIENT_TIMEOUT);
    EXPECT_STREQ(m_error.text, "no worker answers at /nowhere/two: No such file or directory")
        << "the other camera's frames still come in";
}

TEST_F(Sets, LeaveOutWhatHasWaitedForLong)
{
    const int64_t ahead = std::exchange(m_hourAhead, 0); // long ago: when this machine was started
    frame(0, 1, 0);
    frame(1, 1, 1);
    EXPECT_EQ(next(), VQD_CLIENT_TIMEOUT);
    m_hourAhead = ahead;
    frame(0, 2, 0);
    frame(1, 2, 1);
    EXPECT_EQ(next(), VQD_CLIENT_TIMEOUT);
    frame(0, 3, 33);
    ASSERT_EQ(next(), VQD_CLIENT_OK) << m_error.text;
    EXPECT_EQ(m_frames[0].sequence, 2u);
}

TEST_F(Sets, RefuseClientsThatCannotBeInThem)
{
    EXPECT_EQ(vqd_client_sets_open(m_clients, 1, &m_error), nullptr);
    EXPECT_STREQ(m_error.text, "/nowhere/one delivers its frames in other sets");
    EXPECT_EQ(vqd_client_next(m_clients[0], 0, m_frames, &m_error), VQD_CLIENT_USAGE);
    vqd_client_sets_close(m_sets);
    m_sets = nullptr;
    vqd_client* const twice[] = {m_clients[0], m_clients[0]};
    EXPECT_EQ(vqd_client_sets_open(twice, 2, &m_error), nullptr);
    EXPECT_EQ(vqd_client_sets_open(m_clients, 0, &m_error), nullptr);
    EXPECT_EQ(vqd_client_sets_open(m_clients, 65, &m_error), nullptr);
    EXPECT_EQ(vqd_client_next(m_clients[0], 0, m_frames, &m_error), VQD_CLIENT_TIMEOUT) << "it is free again";
}

} // namespace
