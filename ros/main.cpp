// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd-ros: publishes the frames of one worker as ROS 2 topics. A client of the worker, so that whatever DDS and the
// network do, the camera streams on.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include "host/failure.h"
#include "host/topic_name.h"
#include "ros/camera_publisher.h"
#include "worker/local_socket.h"

namespace
{

using namespace std::chrono_literals;

void say(const std::string& sentence)
{
    fprintf(stderr, "vqd-ros: %s\n", sentence.c_str());
}

// Before Cyclone starts its threads, which inherit the mask.
Descriptor takeSignals()
{
    sigset_t taken;
    sigemptyset(&taken);
    for (const int number : {SIGTERM, SIGINT, SIGHUP})
        sigaddset(&taken, number);
    sigprocmask(SIG_BLOCK, &taken, nullptr);
    signal(SIGPIPE, SIG_IGN);
    return Descriptor(signalfd(-1, &taken, SFD_CLOEXEC | SFD_NONBLOCK));
}

class Timer
{
public:
    Timer() : m_descriptor(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {}

    void start(std::chrono::nanoseconds after, std::chrono::nanoseconds every = 0ns) const
    {
        const itimerspec time{specOf(every), specOf(after)};
        timerfd_settime(m_descriptor, 0, &time, nullptr);
    }
    int descriptor() const { return m_descriptor; }

    // Whether the time had come.
    bool rang() const
    {
        uint64_t times = 0;
        return read(m_descriptor, &times, sizeof times) == sizeof times;
    }

private:
    static timespec specOf(std::chrono::nanoseconds time)
    {
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
        return {seconds.count(), (time - seconds).count()};
    }
    Descriptor m_descriptor;
};

void publish(const PublisherOptions& options)
{
    constexpr int kReconnectMs = 100;
    const Descriptor signals = takeSignals();
    const Domain domain = domainFrom([](const char* name) { return getenv(name); });
    for (const std::string& warning : domain.warnings)
        say(warning);
    const Participant participant(domain);
    CameraPublisher camera(participant, options, say);
    const Timer pause, second;
    second.start(1s, 1s);
    for (;;) {
        camera.take();
        if (camera.waits())
            pause.start(CameraPublisher::kPause);
        pollfd waiting[] = {{signals, POLLIN, 0},
                            {pause.descriptor(), POLLIN, 0},
                            {second.descriptor(), POLLIN, 0},
                            {camera.descriptor(), POLLIN, 0}};
        poll(waiting, std::size(waiting), waiting[3].fd < 0 ? kReconnectMs : -1);
        if (waiting[0].revents != 0)
            return;
        if (pause.rang() && camera.waits())
            camera.sendNext();
        if (second.rang())
            camera.tellHealth();
    }
}

std::string checkName(const std::string& name)
{
    return isTopicName(name) ? "" : kTopicNameRule;
}

std::optional<bool> choice(const std::string& word, const char* yes)
{
    return word == "auto" ? std::nullopt : std::optional(word == yes);
}

int runCommandLine(int argc, char** argv)
{
    PublisherOptions options;
    std::string images = "auto", depth = "auto";
    CLI::App app("Publishes a camera of the VQD family as ROS 2 topics, without an installation of ROS.", "vqd-ros");
    app.set_version_flag("--version", "vqd-ros " VQD_VERSION);
    app.add_option("WORKER", options.worker, "The camera's worker: a name, as a rule the serial number, or a socket")
        ->required();
    app.add_option("--name", options.name, "First part of the topics (default vqd_SERIAL)")->check(checkName);
    app.add_option("--images", images, "raw or rect: what the images are, whatever the camera is set to")
        ->check(CLI::IsMember({"auto", "raw", "rect"}));
    app.add_option("--depth", depth, "depth or range: along the optical axis or along the ray")
        ->check(CLI::IsMember({"auto", "depth", "range"}));
    app.add_flag("--points", options.points, "Publishes a point cloud, too");
    app.footer("vqd publish starts workers and this program. ROS_DOMAIN_ID, ROS_AUTOMATIC_DISCOVERY_RANGE,\n"
               "ROS_STATIC_PEERS, ROS_LOCALHOST_ONLY and CYCLONEDDS_URI are obeyed.\n"
               "Example: vqd-ros 24061100000001 --name left --images rect");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kDone : kUsage;
    }
    options.rectified = choice(images, "rect");
    options.range = choice(depth, "range");
    publish(options);
    return kDone;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return runCommandLine(argc, argv);
    } catch (const Failure& failure) {
        say(failure.what());
        return failure.code;
    } catch (const std::exception& error) {
        say(error.what());
        return kFailed;
    }
}
