// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "worker/publishing.h"

#include <filesystem>
#include <unistd.h>

#include "host/failure.h"

// It stands beside this program.
std::string publisherProgram()
{
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    const std::string path = (self.parent_path() / "vqd-ros").string();
    if (error || access(path.c_str(), X_OK) != 0)
        throw Failure(kFailed, "ROS 2 topics need the program " + path + ", of the package vqd-ros");
    return path;
}

std::vector<std::string> publisherWords(const std::string& socket, const Publishing& publishing)
{
    // A path, or it would be taken for the name of a worker.
    std::vector<std::string> words{"vqd-ros", std::filesystem::absolute(socket).string()};
    for (const auto& [option, value] :
         {std::pair{"--name", &publishing.name}, {"--images", &publishing.images}, {"--depth", &publishing.depth}})
        if (!value->empty())
            words.insert(words.end(), {option, *value});
    if (publishing.points)
        words.emplace_back("--points");
    return words;
}
