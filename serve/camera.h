// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// One camera as the server shows it: its worker, what that tells of it, and what clients want of it.
#pragma once

#include <deque>

#include "serve/configuration.h"
#include "serve/contact.h"
#include "serve/frames.h"
#include "serve/publisher.h"

// A worker that runs already.
struct FoundWorker {
    std::filesystem::path socket, status;
    Json state; // schema vqd.worker/1
};

class Camera
{
public:
    using Clock = std::chrono::steady_clock;
    using AnswerTo = Frames::AnswerTo;
    struct Options {
        std::string worker; // what it is called: a serial number or a port
        CameraWish wish;
        PublishWish publish;
        std::vector<std::string> workerOptions; // of one that is started for it
        AnswerTo answer;
        std::function<void(const std::string& sentence)> say;
    };

    explicit Camera(Options options);

    const std::string& id() const { return m_options.worker; }
    bool isCalled(const std::string& name) const; // its id or its port
    Json state(Clock::time_point now) const;      // as in the state of the server
    const Json& parameters() const { return m_parameters; }

    // Takes a worker that runs already, or starts one.
    void useWorker(std::span<const FoundWorker> found, Clock::time_point now);

    // Whether the worker has gone, or another one has the camera, so that somebody should look which there are.
    bool misses(Clock::time_point now) const;

    void wantFrame(const FrameWish& wish, Clock::time_point now) { m_frames.want(wish, now); }

    // Sends a request to the worker; its reply is the answer.
    void forward(uint64_t request, const Json& json, Clock::time_point now);

    void addTo(std::vector<pollfd>& waiting) const { m_contact.addTo(waiting); }
    std::optional<Clock::time_point> serve(Clock::time_point now); // returns when it must be called next

    // Of the end: all are asked to end first, then waited for.
    void askToEnd();
    bool hasEnded(Clock::time_point now);

private:
    void connected();
    void heard(const Received& message);
    void hearEvent(const std::string& event);
    void hearState(const Json& json, Clock::time_point now);
    void startWorker(Clock::time_point now);
    void recordIfWished(Clock::time_point now);
    std::string title() const;
    bool fits(const FoundWorker& worker) const;

    const Options m_options;
    KeptProcess m_own; // its worker, unless one ran already
    Publisher m_publisher;
    Frames m_frames;
    Contact m_contact;
    Json m_state = Json::object(), m_parameters;
    std::deque<Json> m_events;
    Json m_regions = Json::array(); // that are to be watched, also by the next process
    bool m_followsOwn = false;      // rather than a worker that ran already
    Clock::time_point m_looked{};   // when others were looked for
    bool m_isLost = false;          // as the worker's events say, before its state does
    uint64_t m_recordedSession = 0; // in which the recording that was wished was begun
    std::string m_said, m_trouble;
    Clock::time_point m_now{};
};
