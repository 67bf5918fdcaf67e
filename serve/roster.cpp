// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "serve/roster.h"

#include <algorithm>

namespace
{

bool isNoSerialNumber(const std::string& serial)
{
    return serial.find_first_not_of('0') == std::string::npos; // as cameras come that were never given one
}

std::string workerFor(const SeenCamera& camera, std::span<const SeenCamera> cameras)
{
    const bool isKnown = isSerialNumber(camera.serial) && !isNoSerialNumber(camera.serial);
    return isKnown && std::ranges::count(cameras, camera.serial, &SeenCamera::serial) == 1 ? camera.serial
                                                                                           : camera.port;
}

} // namespace

std::vector<std::string> workersFor(const Configuration& configuration, std::span<const SeenCamera> cameras)
{
    std::vector<std::string> workers;
    for (const auto& [name, unused] : configuration.cameras)
        workers.push_back(name);
    if (!configuration.showsUnknown)
        return workers;
    for (const SeenCamera& camera : cameras) {
        const bool isNamed =
            configuration.cameras.contains(camera.port) || configuration.cameras.contains(camera.serial);
        if (!isNamed && !camera.port.empty())
            workers.push_back(workerFor(camera, cameras));
    }
    return workers;
}
