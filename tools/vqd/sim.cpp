// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd sim: runs a program that finds virtual cameras in its own, unmodified libusb.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include "host/failure.h"

#include "command_line.h"
#include "commands.h"
#include "sim_cameras.h"
#include "sim_preload.h"
#include "sim_program.h"

namespace
{

struct Options {
    SimCameras cameras;
    bool kernel = false;
    Invocation invocation;
};

// The parser would turn a negative number into a large one.
std::string checkSeed(const std::string& text)
{
    return text.find_first_not_of("0123456789") == std::string::npos ? "" : "a seed is a whole number, 0 or more";
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
    if (!options.kernel)
        enterPreload(options.invocation.arguments);
    std::vector<Plugged> cameras = camerasOf(options.cameras); // mistakes in it are reported before anything starts
    const size_t count = cameras.size();
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
    SimCameras& cameras = options->cameras;
    CLI::Option* models = command->add_option("MODEL", cameras.models, "Cameras to plug in; the first has index 0");
    models->check(CLI::Validator(checkModel, "{" + knownModels(",") + "}"))
        ->expected(0, -1)
        ->type_name("MODEL")
        ->default_str(cameras.models.front());
    const std::vector<CLI::Option*> scene = addSceneOptions(*command, cameras.scene);
    CLI::Option* seed = command->add_option("--seed", cameras.seed, "Seed of everything that is random")
                            ->check(CLI::Validator(checkSeed, ""))
                            ->capture_default_str();
    CLI::Option* rate =
        command
            ->add_option(
                "--fps", cameras.framesPerSecond,
                "Frames per second; with 0, a frame is always ready; recordings have their own pace without it")
            ->check(CLI::Range(0.0, 1000.0))
            ->capture_default_str();
    command
        ->add_option("--fault", cameras.plan, "What goes wrong, such as \"unplug after frame 40, back after 350 ms\"")
        ->type_name("PLAN");
    addRepeatable(*command, "--serial", cameras.serials, "[CAMERA:]DIGITS",
                  "Serial number of 14 digits; 2:... is for the second camera")
        ->check(notEmpty);
    addRepeatable(*command, "--eeprom", cameras.eeproms, "[CAMERA:]FILE",
                  "Content of the EEPROM: 128 bytes, as from vqd eeprom backup")
        ->check(notEmpty);
    addRepeatable(*command, "--table", cameras.tables, "[CAMERA:]TABLE=FILE",
                  "A calibration table in the camera, by its name in vqd table")
        ->check(notEmpty);
    CLI::Option* play = command->add_option("--play", cameras.recordings,
                                            "Recordings to play: a camera for each product and serial number");
    play->type_name("FILE...")->check(notEmpty)->excludes(models)->excludes(seed);
    for (CLI::Option* option : scene)
        play->excludes(option);
    command
        ->add_flag("--loop", cameras.loop, "Begin again at the end of a recording; otherwise its camera is unplugged")
        ->needs(play);
    command->add_flag("--kernel", options->kernel,
                      "Plug them into the running kernel, for all its programs; needs root and the module vhci-hcd");
    command->footer("vqd sim [OPTIONS] [MODEL...] -- PROGRAM [ARGUMENTS...]\n"
                    "With --kernel and without a program, the cameras stay until SIGINT or SIGTERM.\n"
                    "The exit code is that of the program, or 128 + signal when a signal killed it.\n"
                    "docs/virtual-camera.md describes the language of fault plans.\n"
                    "Example: vqd sim VQD-HT120 VQD-RS110 --scene wall -- vqd list\n"
                    "Example: vqd sim --play broken.mcap -- vqd stats\n"
                    "Example: vqd sim --fault \"third bulk IN stalls; every EEPROM write refused\" -- PROGRAM");
    command->callback([&run, options, rate] {
        if (options->invocation.program.empty() && !options->kernel)
            throw CLI::RequiredError("-- PROGRAM");
        if (std::isnan(options->cameras.framesPerSecond)) // CLI11 takes it as within every range
            throw CLI::ValidationError("--fps", "it is not a number");
        options->cameras.recordedPace = rate->count() == 0;
        run = [options] { return simulate(*options); };
    });
}
