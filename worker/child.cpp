// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The camera's loop is the main thread, and the readers have a thread of their own. Whatever asks the process to end
// also sets a limit of time, since a read may block for longer than anybody waits.
#include "worker/child.h"

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <sys/prctl.h>
#include <thread>
#include <unistd.h>

#include "host/camera_list.h"
#include "host/claim.h"
#include "host/profile.h"
#include "recording/recorder.h"

#include "worker/answers.h"
#include "worker/camera_loop.h"
#include "worker/socket_sink.h"

namespace
{

constexpr unsigned kMostSecondsToEnd = 2;

std::atomic<bool> g_stops = false;
static_assert(std::atomic<bool>::is_always_lock_free);

// Also called by signals.
void stop(int)
{
    g_stops = true;
    m_nReadingStop = 1; // the next read returns at once
    m_nReopenTime = 0;  // a search ends after the present try
    alarm(kMostSecondsToEnd);
}

void catchSignals()
{
    struct sigaction action {
    };
    action.sa_handler = stop;
    action.sa_flags = SA_RESTART;
    sigaction(SIGTERM, &action, nullptr);
    for (const int number : {SIGINT, SIGHUP}) // of the terminal: they are the supervisor's to judge
        signal(number, SIG_IGN);
    action.sa_handler = [](int) { _exit(kInterrupted); };
    sigaction(SIGALRM, &action, nullptr);
    for (const int number : {SIGPIPE, SIGXFSZ}) // what is written to then fails
        signal(number, SIG_IGN);
}

void followParent()
{
    const pid_t parent = getppid();
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) // it ended before that
        stop(0);
}

// The library's lines are for programs that print. What they say reaches readers as events and states.
void silenceLibrary()
{
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere >= 0)
        dup2(nowhere, STDOUT_FILENO);
    close(nowhere);
}

void applySettings(const ListedCamera& camera, const std::vector<std::string>& texts)
{
    const std::vector<Assignment> assignments = parseForFrames(texts);
    for (const Assignment& assignment : assignments)
        sendAssignment(camera, assignment);
    requireTaken(camera, assignments);
}

// A profile that no longer fits is told and left out, as in the tool. One that cannot be read is a failure: frames with
// other values than the user has prepared would look the same.
void useProfile(std::span<const ListedCamera> cameras, const ListedCamera& camera, WorkerState& state,
                SocketSink& socket)
{
    const FoundProfile found = findProfile(cameras, camera);
    applyProfile(camera, found);
    if (found.values)
        state.change([&](auto& values) { values.profile = found.path.string(); });
    if (found.warning.empty())
        return;
    state.change([&](auto& values) { values.warning = found.warning; });
    Json event = eventOf("profile-not-used");
    event["text"] = found.warning;
    socket.event(event);
}

Json failureEvent(const std::exception& failure, const WorkerState& state)
{
    const Json why = refusal(failure);
    Json event = eventOf("failed");
    event["text"] = why["error"];
    event["code"] = why["code"];
    event["held"] = dynamic_cast<const CameraHeld*>(&failure) != nullptr;
    event["camera"] = state.json()["camera"];
    return event;
}

std::unique_ptr<RecordingSink> recorderFor(const ChildOptions& options, WorkerState& state)
{
    if (options.recordings.empty())
        return nullptr;
    return makeRecorder(
        {options.recordings, options.keepFree, state.session(),
         [&state](const Json& recording) { state.change([&](auto& values) { values.recording = recording; }); },
         [] { return g_stops.load(); }});
}

void work(const ChildOptions& options, WorkerState& state, RequestQueue& requests, SocketSink& socket,
          RecordingSink* recorder)
{
    const std::vector<ListedCamera> cameras = listCameras();
    const ListedCamera& camera = cameraNamed(cameras, options.camera);
    state.change([&](auto& values) {
        values.camera = identityJson(camera);
        values.name = lastingNameOf(cameras, camera);
    });
    requireClaim(camera);
    loadAlone(cameras, camera);
    if (options.profile)
        useProfile(cameras, camera, state, socket);
    applySettings(camera, options.settings);
    Watch watch(state);
    std::vector<Sink*> sinks{&watch, &socket}; // figures are there before their frame
    if (recorder != nullptr) {
        recorder->prepare(camera);
        sinks.push_back(recorder);
    }
    CameraLoop(camera, {.sinks = sinks,
                        .state = state,
                        .requests = requests,
                        .recorder = recorder,
                        .watch = watch,
                        .reply = [&](const PendingRequest& pending,
                                     const Json& reply) { socket.reply(pending.client, pending.number, reply); },
                        .stops = [] { return g_stops.load(); }})
        .run();
}

} // namespace

int runChild(const ChildOptions& options)
{
    catchSignals();
    followParent();
    silenceLibrary();
    WorkerState state;
    RequestQueue requests;
    const std::unique_ptr<RecordingSink> recorder = recorderFor(options, state);
    SocketSink socket(kListeningDescriptor, kLinkDescriptor, state, requests, recorder.get(), [] { stop(0); });
    int code = kDone;
    try {
        work(options, state, requests, socket, recorder.get());
    } catch (const std::exception& failure) {
        const Json event = failureEvent(failure, state);
        code = event["code"];
        if (!g_stops)
            socket.event(event);
        if (!g_stops && recorder)
            recorder->event(event);
    }
    if (recorder)
        recorder->end();
    closeClaimed();
    return g_stops ? kInterrupted : code;
}
