// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd sim: runs a program that finds virtual cameras in its own, unmodified libusb.
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include "commands.h"
#include "exit_codes.h"
#include "sim/fault_language.h"
#include "sim/scene.h"
#include "sim/umockdev_bus.h"

namespace
{

constexpr char kPreload[] = "libumockdev-preload.so.0";
constexpr char kGuard[] = "VQD_SIM_PRELOADED"; // set for the run of this program that has the preload already
constexpr size_t kMostCameras = 11;            // one more than the library takes

constexpr struct {
    const char* name;
    uint16_t productId;
} kModels[] = {
    {"VQD-HT120", 0x871A}, {"VQD-HT110", 0x8718}, {"VQD-HT950X", 0x871C},
    {"VQD-RS110", 0x8720}, {"VQD-RS120", 0x8722}, {"VQD-WN120", 0x8724},
};

struct Options {
    std::vector<std::string> models{kModels[0].name};
    std::string scene = "room";
    uint64_t seed = 1;
    double framesPerSecond = 30;
    std::string plan;
    std::vector<sim::PlannedFault> faults;
    Invocation invocation;
};

std::string knownModels()
{
    std::string names;
    for (const auto& model : kModels)
        names += (names.empty() ? "" : ", ") + std::string(model.name);
    return names;
}

std::string checkModel(const std::string& name)
{
    for (const auto& model : kModels)
        if (name == model.name)
            return {};
    return "unknown model " + name + "; known are " + knownModels() + " (the program to run stands behind \"--\")";
}

void prependVariable(const char* name, const std::string& value)
{
    const char* present = getenv(name);
    const bool empty = present == nullptr || *present == '\0';
    setenv(name, (empty ? value : value + ":" + present).c_str(), 1);
}

// The process that owns the bus must run under the preload, as its clients do. Returns in that process only.
void ensurePreload(char** arguments)
{
    if (getenv(kGuard) != nullptr) {
        unsetenv(kGuard);
        return;
    }
    setenv(kGuard, "1", 1);
    prependVariable("LD_PRELOAD", kPreload);
    // Programs built with the address sanitizer want no preload before it.
    prependVariable("ASAN_OPTIONS", "verify_asan_link_order=0");
    execv("/proc/self/exe", arguments);
    throw Failure(kFailed, std::string("/proc/self/exe: ") + strerror(errno));
}

void plugCameras(sim::Bus& bus, const Options& options)
{
    for (size_t i = 0; i < options.models.size(); ++i) {
        const auto* model = std::find_if(std::begin(kModels), std::end(kModels),
                                         [&](const auto& known) { return options.models[i] == known.name; });
        sim::Config config;
        config.product = model->name;
        config.productId = model->productId;
        config.serial.back() = static_cast<uint8_t>(i + 1);
        config.framesPerSecond = options.framesPerSecond;
        for (const sim::PlannedFault& planned : options.faults)
            if (planned.camera == 0 || planned.camera == i + 1)
                config.faults.push_back(planned.fault);
        config.source = sim::makeScene({.kind = *sim::sceneByName(options.scene), .seed = options.seed + i});
        bus.add(std::move(config));
    }
}

// Signals that end a process, and the news that a child has ended: taken one by one, by wait() below.
class Signals
{
public:
    Signals()
    {
        sigemptyset(&m_set);
        for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGCHLD})
            sigaddset(&m_set, number);
        signal(SIGCHLD, SIG_DFL);
        sigprocmask(SIG_BLOCK, &m_set, &m_before);
    }

    pid_t start(const std::vector<std::string>& program) const
    {
        std::vector<char*> arguments;
        for (const std::string& argument : program)
            arguments.push_back(const_cast<char*>(argument.c_str()));
        arguments.push_back(nullptr);
        posix_spawnattr_t attributes;
        posix_spawnattr_init(&attributes);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
        posix_spawnattr_setsigmask(&attributes, &m_before);
        pid_t child = 0;
        const int error = posix_spawnp(&child, arguments[0], nullptr, &attributes, arguments.data(), environ);
        posix_spawnattr_destroy(&attributes);
        if (error != 0)
            throw Failure(error == ENOENT ? kNoProgram : kCannotRun, program[0] + ": " + strerror(error));
        return child;
    }

    // Passes signals on until the child ends. Returns what a shell would say of it.
    int wait(pid_t child) const
    {
        for (;;) {
            siginfo_t info{};
            const int number = sigwaitinfo(&m_set, &info);
            int status = 0;
            if (number == SIGCHLD && waitpid(child, &status, WNOHANG) == child)
                return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
            // What a terminal sends, it sends to the child too.
            if (number > 0 && number != SIGCHLD && info.si_code != SI_KERNEL)
                kill(child, number);
        }
    }

private:
    sigset_t m_set, m_before;
};

int simulate(const Options& options)
{
    ensurePreload(options.invocation.arguments);
    const Signals signals; // before the bus, whose threads shall not take them
    sim::Bus bus;
    plugCameras(bus, options);
    setenv("VQD_SIM_PID", std::to_string(getpid()).c_str(), 1); // tells vqd doctor whose the device nodes are
    return signals.wait(signals.start(options.invocation.program));
}

} // namespace

void addSim(CLI::App& app, Run& run, const Invocation& invocation)
{
    CLI::App* command = app.add_subcommand("sim", "Runs a program with virtual cameras plugged into its libusb");
    const auto options = std::make_shared<Options>();
    options->invocation = invocation;
    command->add_option("MODEL", options->models, "Cameras to plug in: " + knownModels())
        ->check(CLI::Validator(checkModel, ""))
        ->expected(0, -1)
        ->type_name("MODEL")
        ->default_str(kModels[0].name);
    command->add_option("--scene", options->scene, "What the cameras see")
        ->check(CLI::IsMember({"room", "wall", "ramp", "plane"}))
        ->capture_default_str();
    command->add_option("--seed", options->seed, "Seed of everything random")->capture_default_str();
    command->add_option("--fps", options->framesPerSecond, "Frames per second; 0: a frame is always ready")
        ->check(CLI::Range(0.0, 1000.0))
        ->capture_default_str();
    command
        ->add_option("--fault", options->plan, "What goes wrong, such as \"unplug after frame 40, back after 350 ms\"")
        ->type_name("PLAN");
    command->footer("vqd sim [OPTIONS] [MODEL...] -- PROGRAM [ARGUMENTS...]\n"
                    "Ends with the program's exit code, 128 + signal when it was killed.\n"
                    "Examples: vqd sim VQD-HT120 VQD-RS110 --scene wall -- vqd list\n"
                    "          vqd sim --fault \"third bulk IN stalls; every EEPROM write refused\" -- PROGRAM\n"
                    "docs/virtual-camera.md has the language of fault plans.");
    command->callback([&run, options] {
        if (options->invocation.program.empty())
            throw CLI::RequiredError("-- PROGRAM");
        if (std::isnan(options->framesPerSecond)) // within every range, CLI11 says
            throw CLI::ValidationError("--fps", "not a number");
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
