// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The cameras that vqd sim plugs in, as the command line describes them.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sim/bus.h"

#include "sim_scene.h"

struct SimCameras {
    std::vector<std::string> models{"VQD-HT120"};
    std::vector<std::string> recordings;               // files that are played, instead of models
    std::vector<std::string> serials, eeproms, tables; // "[CAMERA:]..."
    SimScene scene;
    uint64_t seed = 1;
    double framesPerSecond = 30;
    bool recordedPace = true; // of recordings; else the rate above counts for them, too
    bool loop = false;        // recordings begin again
    std::string plan;         // of faults
};

// A camera, and what its memory holds instead of the factory's content.
struct Plugged {
    sim::Config config;
    std::optional<sim::Eeprom> eeprom;
    std::map<uint16_t, std::vector<uint8_t>> tables;
};

// The models by name, and why a name is none of them; empty when it is one.
std::string knownModels(const char* between);
std::string checkModel(const std::string& name);

// Fails with a usage error for what no camera can have.
std::vector<Plugged> camerasOf(const SimCameras& options);

// One camera a serial number, in the order of the files.
std::vector<Plugged> playedCameras(const SimCameras& options);

// So that the library lists them in this order.
void plugCameras(sim::Bus& bus, std::vector<Plugged> cameras);
