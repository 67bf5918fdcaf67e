// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Models and recordings, and what the command line puts into their memories.
#include "sim_cameras.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <functional>

#include "host/failure.h"
#include "host/whole_files.h"
#include "sim/fault_language.h"
#include "sim/registers.h"

#include "for_camera.h"

namespace
{

constexpr size_t kMostCameras = 11; // one more than the library can use, so that its refusal can be seen

constexpr struct {
    const char* name;
    uint16_t productId;
} kModels[] = {
    {"VQD-HT120", 0x871A}, {"VQD-HT110", 0x8718}, {"VQD-HT950X", 0x871C},
    {"VQD-RS110", 0x8720}, {"VQD-RS120", 0x8722}, {"VQD-WN120", 0x8724},
};

// Tables in the camera's memory, by their names in vqd table.
constexpr struct {
    const char* name;
    uint16_t region;
    size_t bytes;
} kTables[] = {
    {"wiggling", sim::kWigglingRegion, 3840},         {"wiggling-a", sim::kWigglingRegion, 8192},
    {"wiggling-b", sim::kSecondWigglingRegion, 8192}, {"fppn", sim::kPlainFppnRegion, 12288},
    {"fppn-4x4", sim::kFppn4x4Region, 9600},          {"fppn-5x5", sim::kFppn5x5Region, 6144},
    {"orthogonal", sim::kOrthogonalRegion, 4096},
};

std::array<uint8_t, 7> parseSerial(const std::string& digits)
{
    std::array<uint8_t, 7> serial{};
    bool good = digits.size() == 2 * serial.size();
    for (size_t i = 0; good && i < serial.size(); ++i) {
        const char* const pair = digits.data() + 2 * i;
        const auto [stop, error] = std::from_chars(pair, pair + 2, serial[i], 16);
        good = error == std::errc{} && stop == pair + 2;
    }
    if (!good)
        throw Failure(kUsage, "a serial number has 14 hexadecimal digits, not '" + digits + "'");
    return serial;
}

void fill(Plugged& camera, size_t index, size_t count, const SimCameras& options)
{
    for (const std::string& text : options.eeproms)
        if (const ForCamera file = addressed(text, count); file.concerns(index)) {
            const std::vector<uint8_t> bytes = readFile(file.value, sim::kEepromBytes);
            std::copy(bytes.begin(), bytes.end(), camera.eeprom.emplace().begin());
            std::copy_n(bytes.begin() + sim::kSerialNumber, camera.config.serial.size(), camera.config.serial.begin());
        }
    for (const std::string& text : options.serials)
        if (const ForCamera serial = addressed(text, count); serial.concerns(index))
            camera.config.serial = parseSerial(serial.value);
    if (camera.eeprom)
        std::ranges::copy(camera.config.serial, camera.eeprom->begin() + sim::kSerialNumber);
    for (const std::string& text : options.tables) {
        const ForCamera table = addressed(text, count);
        const size_t equals = table.value.find('=');
        const auto* row = std::find_if(std::begin(kTables), std::end(kTables),
                                       [&](const auto& known) { return table.value.substr(0, equals) == known.name; });
        if (equals == std::string::npos || row == std::end(kTables))
            throw Failure(kUsage, "'" + text + "' is not of the form TABLE=FILE, with a table that vqd table knows");
        if (table.concerns(index))
            camera.tables[row->region] = readFile(table.value.substr(equals + 1), row->bytes);
    }
}

std::vector<Plugged> modelCameras(const SimCameras& options)
{
    std::vector<Plugged> cameras;
    for (const std::string& name : options.models) {
        const auto* model =
            std::find_if(std::begin(kModels), std::end(kModels), [&](const auto& known) { return name == known.name; });
        const size_t index = cameras.size();
        Plugged& camera = cameras.emplace_back();
        camera.config.product = model->name;
        camera.config.productId = model->productId;
        camera.config.serial.back() = static_cast<uint8_t>(index + 1);
        sim::SceneOptions scene = sceneOf(options.scene, index, options.models.size());
        scene.seed = options.seed + index;
        camera.config.source = sim::makeScene(scene);
    }
    return cameras;
}

std::vector<sim::PlannedFault> faultsOf(const SimCameras& options, size_t cameras)
{
    try {
        return sim::parseFaultPlan(options.plan, cameras);
    } catch (const sim::FaultPlanError& error) {
        throw Failure(kUsage, std::string("fault plan: ") + error.what());
    }
}

} // namespace

std::string knownModels(const char* between)
{
    std::string names;
    for (const auto& model : kModels)
        names += (names.empty() ? "" : between) + std::string(model.name);
    return names;
}

std::string checkModel(const std::string& name)
{
    for (const auto& model : kModels)
        if (name == model.name)
            return {};
    return "unknown model " + name + "; known models are " + knownModels(", ") +
           " (the program to run stands after \"--\")";
}

std::vector<Plugged> camerasOf(const SimCameras& options)
{
    std::vector<Plugged> cameras = options.recordings.empty() ? modelCameras(options) : playedCameras(options);
    if (cameras.size() > kMostCameras)
        throw Failure(kUsage, "at most " + std::to_string(kMostCameras) + " cameras can be plugged in");
    const std::vector<sim::PlannedFault> faults = faultsOf(options, cameras.size());
    for (size_t i = 0; i < cameras.size(); ++i) {
        Plugged& camera = cameras[i];
        camera.config.framesPerSecond = options.framesPerSecond;
        for (const sim::PlannedFault& planned : faults)
            if (planned.camera == 0 || planned.camera == i + 1)
                camera.config.faults.push_back(planned.fault);
        fill(camera, i, cameras.size(), options);
    }
    return cameras;
}

void plugCameras(sim::Bus& bus, std::vector<Plugged> cameras)
{
    // libusb lists ports in falling order of their names. Ports that fall give indexes in the order of the command
    // line.
    std::vector<std::string> ports;
    for (size_t i = 1; i <= cameras.size(); ++i)
        ports.push_back(std::to_string(i));
    std::ranges::sort(ports, std::greater());
    for (size_t i = 0; i < cameras.size(); ++i) {
        const size_t index = bus.add(std::move(cameras[i].config), static_cast<unsigned>(std::stoul(ports[i])));
        bus.withCamera(index, [&](sim::Camera& camera) {
            camera.eeprom = cameras[i].eeprom.value_or(camera.eeprom);
            for (auto& [region, bytes] : cameras[i].tables)
                camera.regions[region] = std::move(bytes);
        });
    }
}
