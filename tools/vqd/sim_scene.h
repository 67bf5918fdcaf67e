// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What the virtual cameras look at, and through what, as the command line of vqd sim describes it.
#pragma once

#include <string>
#include <vector>

#include "sim/scene.h"

namespace CLI
{
class App;
class Option;
} // namespace CLI

struct SimScene {
    std::string scene = "room";                      // NAME or NAME:ARGUMENT
    std::vector<std::string> lenses, poses, sensors; // "[CAMERA:]..."
};

std::vector<CLI::Option*> addSceneOptions(CLI::App& command, SimScene& options);

// For the camera with this index, of so many. Fails with a usage error.
sim::SceneOptions sceneOf(const SimScene& options, size_t index, size_t cameras);
