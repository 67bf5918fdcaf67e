// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Workers are found by the ports of their cameras, since serial numbers may be equal or missing.
#include "all_cameras.h"

#include <algorithm>
#include <poll.h>

#include "host/usb_devices.h"
#include "worker/runtime_folder.h"

#include "interrupt.h"
#include "messages.h"
#include "options.h"

namespace
{

constexpr int kStartMs = 5000; // of a worker, until it listens

Client connectTo(const std::string& socket, int timeoutMs)
{
    vqd_client_error error;
    Client client(vqd_client_connect(socket.c_str(), timeoutMs, &error));
    if (!client)
        throw Failure(kFailed, error.text);
    return client;
}

std::string portIn(const char* state)
{
    const Json json = Json::parse(state, nullptr, false);
    const Json camera = json.is_object() ? json.value("camera", Json()) : Json();
    const Json port = camera.is_object() ? camera.value("port", Json()) : Json();
    return port.is_string() ? port.get<std::string>() : "";
}

} // namespace

std::map<std::string, std::string> runningWorkers()
{
    constexpr int kMost = 64, kPatience = 1000;
    std::vector<vqd_client_worker> found(kMost);
    const int count = vqd_client_list(found.data(), kMost, kPatience, nullptr);
    std::map<std::string, std::string> sockets;
    for (int i = 0; i < std::min(count, kMost); ++i)
        if (const vqd_client_worker& worker = found[static_cast<size_t>(i)]; worker.result == VQD_CLIENT_OK)
            if (const Client client{vqd_client_connect(worker.path, kPatience, nullptr)})
                sockets.emplace(portIn(vqd_client_state(client.get())), worker.path);
    return sockets;
}

bool allCamerasChosen()
{
    return common.camera == "all";
}

AllCameras::AllCameras(const WorkerStart& start)
{
    catchInterrupts();
    const std::map<std::string, std::string> running = runningWorkers();
    std::vector<UsbCamera> attached = attachedCameras();
    if (!start.port.empty())
        std::erase_if(attached, [&](const UsbCamera& camera) { return camera.port != start.port; });
    if (attached.empty())
        throw Failure(kNoCamera, "no camera found");
    for (const UsbCamera& camera : attached)
        if (!running.contains(camera.port))
            m_workers.start(camera.port, start.settings, start.options);
        else if (!start.settings.empty())
            throw Failure(kFailed, "the camera at " + camera.port +
                                       " has a worker already, whose readers want its settings as they are");
    for (const UsbCamera& camera : attached) {
        const auto worker = running.find(camera.port);
        add(camera.port,
            worker != running.end() ? worker->second : (runtimeFolder() / (camera.port + ".sock")).string());
    }
    waitForFrames();
    if (m_cameras.empty())
        throw Failure(*m_failure);
    name();
}

void AllCameras::add(const std::string& port, const std::string& socket)
{
    m_cameras.emplace_back(port, connectTo(socket, kStartMs));
    detail("camera %s: %s", port.c_str(), socket.c_str());
}

void AllCameras::waitForFrame(WorkerCamera& camera) const
{
    constexpr int kStepMs = 100;
    constexpr auto kGrace = std::chrono::seconds(3); // what goes wrong with the first try may pass
    while (!camera.next(kStepMs)) {
        endIfInterrupted();
        m_workers.requireRunning();
        camera.requireFrames();
        if (camera.silence() < kGrace)
            continue;
        if (const std::string why = camera.trouble(); !why.empty())
            throw Failure(kFailed, why);
    }
}

void AllCameras::waitForFrames()
{
    for (auto camera = m_cameras.begin(); camera != m_cameras.end();) {
        try {
            waitForFrame(*camera);
            ++camera;
        } catch (const Failure& failure) {
            endIfInterrupted();
            const Failure named = camera->named(failure);
            warn("%s", named.what());
            m_failure = m_failure.value_or(named);
            camera = m_cameras.erase(camera);
        }
    }
}

// By serial number, and by port where that is unknown or not the only one.
void AllCameras::name()
{
    std::map<std::string, int> cameras;
    const auto serial = [](const WorkerCamera& camera) {
        const Json text = camera.identity().value("serial", Json());
        return text.is_string() ? text.get<std::string>() : "";
    };
    for (const WorkerCamera& camera : m_cameras)
        ++cameras[serial(camera)];
    for (WorkerCamera& camera : m_cameras)
        if (const std::string text = serial(camera); !text.empty() && cameras[text] == 1)
            camera.setName(text);
    std::ranges::sort(m_cameras, {}, &WorkerCamera::name);
}

void AllCameras::wait(int timeoutMs) const
{
    std::vector<pollfd> waiting;
    for (const WorkerCamera& camera : m_cameras)
        waiting.push_back({camera.descriptor(), POLLIN, 0});
    poll(waiting.data(), waiting.size(), timeoutMs);
}

void AllCameras::requireNoneLeftOut() const
{
    if (m_failure)
        throw Failure(*m_failure);
}

void AllCameras::requireAll()
{
    requireNoneLeftOut();
    for (WorkerCamera& camera : m_cameras) {
        try {
            camera.requireFrames();
        } catch (const Failure& failure) {
            throw camera.named(failure);
        }
    }
}
