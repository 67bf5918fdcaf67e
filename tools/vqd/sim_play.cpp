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

struct Played {
    std::string serial;
    std::vector<Recording> parts;
};

// Parts of one recording, and recordings of one camera, belong together.
std::vector<Played> recordedCameras(const std::vector<std::string>& files)
{
    std::vector<Played> cameras;
    for (const std::string& file : files)
        for (const std::string& serial : camerasIn(file)) {
            auto camera = std::ranges::find(cameras, serial, &Played::serial);
            if (camera == cameras.end())
                camera = cameras.insert(camera, {serial, {}});
            camera->parts.emplace_back(file, serial);
        }
    return cameras;
}

} // namespace

std::vector<Plugged> playedCameras(const SimCameras& options)
{
    std::vector<Plugged> cameras;
    for (Played& played : recordedCameras(options.recordings)) {
        const auto tell = [](const std::string& sentence) { warn("%s", sentence.c_str()); };
        const auto player = std::make_shared<Player>(RecordedFrames(std::move(played.parts), tell),
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
