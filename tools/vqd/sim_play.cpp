// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Virtual cameras that play recordings.
#include "recording/player.h"

#include <algorithm>

#include "messages.h"
#include "sim_cameras.h"

namespace
{

using Parts = std::vector<Recording>;

// Parts of one recording, and recordings of one camera, belong together.
std::vector<Parts> recordedCameras(const std::vector<std::string>& files)
{
    std::vector<Parts> cameras;
    for (const std::string& file : files)
        for (const std::string& serial : camerasIn(file)) {
            Recording part(file, serial);
            const auto isSame = [&](const Parts& parts) {
                const CameraFacts &one = parts.front().camera(), &other = part.camera();
                return one.serial == other.serial && one.product == other.product;
            };
            auto camera = std::ranges::find_if(cameras, isSame);
            if (camera == cameras.end())
                camera = cameras.emplace(camera);
            camera->push_back(std::move(part));
        }
    return cameras;
}

} // namespace

std::vector<Plugged> playedCameras(const SimCameras& options)
{
    std::vector<Plugged> cameras;
    for (Parts& parts : recordedCameras(options.recordings)) {
        const auto tell = [](const std::string& sentence) { warn("%s", sentence.c_str()); };
        const auto player = std::make_shared<Player>(RecordedFrames(std::move(parts), tell),
                                                     Player::Options{options.recordedPace, options.loop});
        if (player->firstParameters() == nullptr)
            tell("the settings of the first frames are lost, so the camera has those that it had stored");
        Plugged& camera = cameras.emplace_back();
        camera.config = playedConfig(player->camera());
        camera.eeprom = playedEeprom(player->camera(), player->firstParameters());
        camera.tables = playedTables(player->camera());
        camera.config.source = player;
    }
    return cameras;
}
