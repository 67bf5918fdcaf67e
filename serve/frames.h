// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The newest frame of a camera, and the requests that wait for the next. Whoever asks gets the newest, so nobody is
// ever served a queue of old ones, and a frame is kept and packed once for all.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <vector>

#include "serve/answer.h"
#include "worker/body_pool.h"
#include "worker/outbox.h"
#include "worker/packing.h"

// A request for a frame.
struct FrameWish {
    uint64_t request;
    std::optional<uint64_t> session; // in which `after` counts; nothing for the present one
    uint64_t after;
    bool small;
};

class Frames
{
public:
    using Clock = std::chrono::steady_clock;
    using AnswerTo = std::function<void(uint64_t request, Answer answer)>;

    explicit Frames(AnswerTo answer);

    // Of the connection to the worker: how a frame is asked for; a frame that came; the connection's end. The worker
    // keeps one pull at a time and answers it as soon as it has such a frame.
    void connected(std::function<void(uint64_t after)> pull, Clock::time_point now);
    void came(const Received& message, Clock::time_point now);
    void disconnected();

    // The answer, now or later.
    void want(const FrameWish& wish, Clock::time_point now);

    // Answers those that have waited long enough. Returns when the next will have.
    std::optional<Clock::time_point> giveUp(Clock::time_point now);

private:
    struct Waiting {
        FrameWish wish;
        Clock::time_point until;
    };

    uint64_t after(const FrameWish& wish) const
    {
        return wish.session.value_or(m_session) == m_session ? wish.after : 0;
    }
    bool isServed(const FrameWish& wish) const { return m_latest.sequence() > after(wish); }
    bool isNewest(Clock::time_point now) const;
    void pullIfNeeded(Clock::time_point now);
    Answer answer(bool small);
    Body packed(const Body& frame);

    const AnswerTo m_answer;
    std::function<void(uint64_t after)> m_pull;
    Clock::time_point m_came{};                // the latest frame
    std::optional<Clock::time_point> m_pulled; // when a newer one was asked for, which has not come yet
    uint64_t m_session = 0;
    BodyPool m_pool;
    Packing m_packing;
    LatestFrame m_latest;
    std::vector<Waiting> m_waiting;
};
