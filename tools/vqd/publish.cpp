// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd publish: cameras as ROS 2 topics. Each gets a worker, unless it has one, and a vqd-ros that publishes its frames.
#include <memory>
#include <sys/wait.h>
#include <thread>

#include <CLI/CLI.hpp>

#include "host/topic_name.h"
#include "host/usb_devices.h"
#include "worker/kept_process.h"
#include "worker/publishing.h"
#include "worker/runtime_folder.h"

#include "all_cameras.h"
#include "command_line.h"
#include "commands.h"
#include "interrupt.h"
#include "messages.h"
#include "options.h"

namespace
{

struct Options : Publishing {
    std::vector<std::string> settings;
};

struct Publishers {
    std::list<KeptProcess> all;

    ~Publishers()
    {
        constexpr std::chrono::seconds kMostToEnd(2);
        endTogether(all, kMostToEnd);
    }

    // What a program refuses is the same the next time; it has said itself what it is.
    void keep()
    {
        for (KeptProcess& one : all) {
            const std::optional<int> status = one.ended(KeptProcess::Clock::now());
            if (status && WIFEXITED(*status) && WEXITSTATUS(*status) == kUsage)
                throw Failure(kUsage, "vqd-ros does not start");
            one.start(KeptProcess::Clock::now());
        }
    }
};

// The cameras to publish: the one that was chosen, by its name, or those that are attached, by their ports.
std::vector<std::string> chosenCameras()
{
    if (!common.camera.empty() && !allCamerasChosen())
        return {common.camera};
    std::vector<std::string> ports;
    for (const UsbCamera& camera : attachedCameras())
        ports.push_back(camera.port);
    if (ports.empty())
        throw Failure(kNoCamera, "no camera found");
    return ports;
}

// Of a worker that runs already.
std::string runningSocket(const std::map<std::string, std::string>& byPort, const std::string& camera)
{
    const auto found = byPort.find(camera);
    if (found != byPort.end())
        return found->second;
    for (const auto& [port, socket] : byPort)
        if (std::filesystem::path(socket).stem() == camera)
            return socket;
    return "";
}

int publish(const Options& options)
{
    constexpr std::chrono::milliseconds kLook(100);
    const std::string program = publisherProgram();
    const std::vector<std::string> cameras = chosenCameras();
    if (cameras.size() > 1 && !options.name.empty())
        throw Failure(kUsage, "--name is for one camera; choose it with -c");
    catchInterrupts();
    const std::map<std::string, std::string> running = runningWorkers();
    WorkerProcesses workers; // first, so that they end last
    Publishers publishers;
    for (const std::string& camera : cameras) {
        std::string socket = runningSocket(running, camera);
        if (!socket.empty() && !options.settings.empty())
            throw Failure(kFailed, "the camera " + camera +
                                       " has a worker already, whose readers want its settings as they are");
        if (socket.empty()) {
            workers.start(camera, options.settings, {});
            socket = (runtimeFolder() / (camera + ".sock")).string();
        }
        detail("camera %s: %s", camera.c_str(), socket.c_str());
        publishers.all.emplace_back(program, publisherWords(socket, options));
    }
    while (!interrupted()) {
        workers.requireRunning();
        publishers.keep();
        std::this_thread::sleep_for(kLook);
    }
    return kDone;
}

} // namespace

void addPublish(CLI::App& app, Run& run)
{
    CLI::App* command = app.add_subcommand("publish", "Publishes cameras as ROS 2 topics, without ROS");
    const auto options = std::make_shared<Options>();
    command->add_option("--name", options->name, "First part of the topics of one camera (default vqd_SERIAL)")
        ->check([](const std::string& name) { return isTopicName(name) ? "" : kTopicNameRule; });
    command->add_option("--images", options->images, "raw or rect: what the images are, whatever is set")
        ->check(CLI::IsMember(kImageWords));
    command->add_option("--depth", options->depth, "depth or range: along the optical axis or along the ray")
        ->check(CLI::IsMember(kDepthWords));
    command->add_flag("--points", options->points, "Publishes point clouds, too");
    addRepeatable(*command, "-s,--set", options->settings, "KEY=VALUE", "A setting for the time, as in vqd set");
    addCommon(*command, kCamera | kAllCameras | kProfile);
    command->footer(
        "Without -c it publishes every attached camera. Runs until Ctrl-C or SIGTERM, and needs the package\n"
        "vqd-ros. ROS_DOMAIN_ID and the other variables of ROS 2 are obeyed.\n"
        "Example: vqd publish\n"
        "Example: vqd publish -c 24061100000001 --name left -s undistortion=1 --images rect");
    command->callback([&run, options] { run = [options] { return publish(*options); }; });
}
