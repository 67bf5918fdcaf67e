// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd sim: runs a program that finds virtual cameras in its own, unmodified libusb.
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include "host/whole_files.h"
#include "sim/bus.h"
#include "sim/fault_language.h"
#include "sim/registers.h"

#include "command_line.h"
#include "commands.h"
#include "for_camera.h"
#include "sim_preload.h"
#include "sim_program.h"
#include "sim_scene.h"

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

struct Options {
    std::vector<std::string> models{kModels[0].name};
    std::vector<std::string> serials, eeproms, tables; // "[CAMERA:]..."
    SimScene scene;
    uint64_t seed = 1;
    double framesPerSecond = 30;
    std::string plan;
    std::vector<sim::PlannedFault> faults;
    bool kernel = false;
    Invocation invocation;
};

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

// The parser would turn a negative number into a large one.
std::string checkSeed(const std::string& text)
{
    return text.find_first_not_of("0123456789") == std::string::npos ? "" : "a seed is a whole number, 0 or more";
}

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

// A camera, and what its memory holds instead of the factory's content.
struct Plugged {
    sim::Config config;
    std::optional<sim::Eeprom> eeprom;
    std::map<uint16_t, std::vector<uint8_t>> tables;
};

void fill(Plugged& camera, size_t index, const Options& options)
{
    const size_t count = options.models.size();
    camera.config.serial.back() = static_cast<uint8_t>(index + 1);
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

std::vector<Plugged> camerasOf(const Options& options)
{
    std::vector<Plugged> cameras;
    for (size_t i = 0; i < options.models.size(); ++i) {
        const auto* model = std::find_if(std::begin(kModels), std::end(kModels),
                                         [&](const auto& known) { return options.models[i] == known.name; });
        Plugged& camera = cameras.emplace_back();
        camera.config.product = model->name;
        camera.config.productId = model->productId;
        camera.config.framesPerSecond = options.framesPerSecond;
        for (const sim::PlannedFault& planned : options.faults)
            if (planned.camera == 0 || planned.camera == i + 1)
                camera.config.faults.push_back(planned.fault);
        sim::SceneOptions scene = sceneOf(options.scene, i, options.models.size());
        scene.seed = options.seed + i;
        camera.config.source = sim::makeScene(scene);
        fill(camera, i, options);
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

void printPlaces(sim::Bus& bus, size_t cameras)
{
    for (size_t i = 0; i < cameras; ++i) {
        const sim::UsbAddress address = bus.address(i);
        bus.withCamera(i, [&](const sim::Camera& camera) {
            printf("camera %zu: %s, serial %s, at %03u:%03u\n", i + 1, camera.config().product.c_str(),
                   sim::hexDigits(camera.config().serial).c_str(), address.bus, address.device);
        });
    }
    fflush(stdout);
}

int simulate(const Options& options)
{
    std::vector<Plugged> cameras = camerasOf(options); // mistakes in the options are reported before anything starts
    const size_t count = cameras.size();
    if (!options.kernel)
        enterPreload(options.invocation.arguments);
    const Signals signals; // before the bus, so that its threads do not take them
    const auto bus = options.kernel ? sim::makeKernelBus() : sim::makeMockBus();
    try {
        plugCameras(*bus, std::move(cameras));
    } catch (const std::invalid_argument& error) {
        throw Failure(kUsage, std::string("fault plan: ") + error.what());
    }
    if (options.invocation.program.empty()) {
        printPlaces(*bus, count);
        signals.waitForEnd();
        return kDone;
    }
    if (!options.kernel) // tells vqd doctor which process has the device nodes open
        setenv("VQD_SIM_PID", std::to_string(getpid()).c_str(), 1);
    return signals.wait(signals.start(options.invocation.program));
}

} // namespace

void addSim(CLI::App& app, Run& run, const Invocation& invocation)
{
    CLI::App* command = app.add_subcommand("sim", "Runs a program with virtual cameras plugged into its libusb");
    const auto options = std::make_shared<Options>();
    options->invocation = invocation;
    command->add_option("MODEL", options->models, "Cameras to plug in; the first has index 0")
        ->check(CLI::Validator(checkModel, "{" + knownModels(",") + "}"))
        ->expected(0, -1)
        ->type_name("MODEL")
        ->default_str(kModels[0].name);
    addSceneOptions(*command, options->scene);
    command->add_option("--seed", options->seed, "Seed of everything that is random")
        ->check(CLI::Validator(checkSeed, ""))
        ->capture_default_str();
    command->add_option("--fps", options->framesPerSecond, "Frames per second; with 0, a frame is always ready")
        ->check(CLI::Range(0.0, 1000.0))
        ->capture_default_str();
    command
        ->add_option("--fault", options->plan, "What goes wrong, such as \"unplug after frame 40, back after 350 ms\"")
        ->type_name("PLAN");
    addRepeatable(*command, "--serial", options->serials, "[CAMERA:]DIGITS",
                  "Serial number of 14 digits; 2:... is for the second camera")
        ->check(notEmpty);
    addRepeatable(*command, "--eeprom", options->eeproms, "[CAMERA:]FILE",
                  "Content of the EEPROM: 128 bytes, as from vqd eeprom backup")
        ->check(notEmpty);
    addRepeatable(*command, "--table", options->tables, "[CAMERA:]TABLE=FILE",
                  "A calibration table in the camera, by its name in vqd table")
        ->check(notEmpty);
    command->add_flag("--kernel", options->kernel,
                      "Plug them into the running kernel, for all its programs; needs root and the module vhci-hcd");
    command->footer("vqd sim [OPTIONS] [MODEL...] -- PROGRAM [ARGUMENTS...]\n"
                    "With --kernel and without a program, the cameras stay until SIGINT or SIGTERM.\n"
                    "The exit code is that of the program, or 128 + signal when a signal killed it.\n"
                    "docs/virtual-camera.md describes the language of fault plans.\n"
                    "Example: vqd sim VQD-HT120 VQD-RS110 --scene wall -- vqd list\n"
                    "Example: vqd sim --fault \"third bulk IN stalls; every EEPROM write refused\" -- PROGRAM");
    command->callback([&run, options] {
        if (options->invocation.program.empty() && !options->kernel)
            throw CLI::RequiredError("-- PROGRAM");
        if (std::isnan(options->framesPerSecond)) // CLI11 takes it as within every range
            throw CLI::ValidationError("--fps", "it is not a number");
        if (options->models.size() > kMostCameras)
            throw CLI::ValidationError("MODEL", "at most " + std::to_string(kMostCameras) + " cameras");
        try {
            options->faults = sim::parseFaultPlan(options->plan, options->models.size());
        } catch (const sim::FaultPlanError& error) {
            throw Failure(kUsage, std::string("fault plan: ") + error.what());
        }
        run = [options] { return simulate(*options); };
    });
}
