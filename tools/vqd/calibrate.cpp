// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd calibrate: gives its words to the program vqd-calibrate. That one is Python, so that this tool needs no OpenCV.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

#include <CLI/CLI.hpp>

#include "host/failure.h"

#include "commands.h"

static int calibrate(std::vector<std::string> words)
{
    constexpr char kProgram[] = "vqd-calibrate";
    std::error_code unknown;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", unknown);
    if (!unknown)
        setenv("VQD_TOOL", self.c_str(), 0); // by which it reads recordings and writes what it has found
    words.insert(words.begin(), kProgram);
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    execvp(kProgram, arguments.data());
    if (errno == ENOENT)
        throw Failure(kFailed, "vqd calibrate needs vqd-calibrate, which is not installed (Debian: python3-vqd)");
    throw Failure(kFailed, std::string(kProgram) + " cannot be started: " + strerror(errno));
}

void addCalibrate(CLI::App& app, Run& run)
{
    CLI::App* command = app.add_subcommand("calibrate", "Calibrates cameras from boards and walls, by vqd-calibrate");
    command->prefix_command(); // the words and options are its own
    command->footer(
        "vqd calibrate lens|fppn|pair|check [OPTIONS]\n"
        "lens: the depth lens from a chessboard; fppn: offsets of pixels from flat walls; pair: how two cameras\n"
        "stand to each other; check: what the present calibration is worth. It comes with python3-vqd.\n"
        "Example: vqd calibrate lens --help\n"
        "Example: vqd calibrate lens --board 8x5 --square 60 --write profile");
    command->callback([&run, command] { run = [words = command->remaining()] { return calibrate(words); }; });
}
