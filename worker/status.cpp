// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Asks every socket for its state. What nobody listens to any more is removed on the way.
#include "worker/status.h"

#include <algorithm>
#include <chrono>
#include <poll.h>
#include <sys/socket.h>

#include "host/camera_lock.h"
#include "host/documents.h"

#include "worker/local_socket.h"
#include "worker/runtime_folder.h"

namespace
{

constexpr char kExtension[] = ".status";

// All that comes until the other end closes; cut where that takes too long, or is too much.
std::string received(int connection)
{
    using Clock = std::chrono::steady_clock;
    constexpr size_t kMost = 1 << 20;
    const auto end = Clock::now() + std::chrono::seconds(1);
    const auto left = [end] {
        return static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count());
    };
    std::string text;
    char part[4096];
    for (pollfd ready{connection, POLLIN, 0}; text.size() < kMost && poll(&ready, 1, std::max(left(), 0)) > 0;) {
        const ssize_t came = recv(connection, part, sizeof part, MSG_DONTWAIT);
        if (came <= 0)
            break;
        text.append(part, static_cast<size_t>(came));
    }
    return text;
}

Json workersIn(const std::filesystem::path& folder)
{
    Json workers = Json::array();
    std::error_code unreadable;
    for (const auto& entry : std::filesystem::directory_iterator(folder, unreadable)) {
        if (entry.path().extension() != kExtension || !entry.is_socket(unreadable))
            continue;
        const std::optional<Descriptor> connection = connectTo(entry.path());
        if (connection) {
            try {
                workers.push_back(parsedObject(received(*connection), entry.path().string()));
            } catch (const Failure& failure) {
                workers.push_back({{"state", "unknown"}, {"error", failure.what()}});
            }
        } else {
            removeIfStale(entry.path());
        }
    }
    return workers;
}

Json holderOf(const UsbCamera& camera)
{
    const std::optional<Holder> holder = lockHolder({camera.bus, camera.address, camera.port});
    if (holder)
        return {{"process", holder->process}, {"program", holder->name}};
    if (camera.driver == "usbfs")
        return {{"process", nullptr}, {"program", "a program without a lock"}};
    return nullptr;
}

} // namespace

Json machineStatus()
{
    Json status = document("status");
    status["workers"] = Json::array();
    for (const std::filesystem::path& folder : runtimeFolders())
        for (Json& worker : workersIn(folder))
            status["workers"].push_back(std::move(worker));
    status["cameras"] = Json::array();
    for (const UsbCamera& camera : attachedCameras())
        status["cameras"].push_back({{"port", camera.port},
                                     {"product", camera.product},
                                     {"usb", camera.ids},
                                     {"bus", camera.bus},
                                     {"address", camera.address},
                                     {"holder", holderOf(camera)}});
    return status;
}
