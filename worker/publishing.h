// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// How the frames of a worker are published as ROS 2 topics. The program vqd-ros does that, which comes with a package
// of its own, so that nothing else needs DDS.
#pragma once

#include <array>
#include <string>
#include <vector>

struct Publishing {
    std::string name;          // first part of the topics; empty for usualTopicName()
    std::string images, depth; // one of the words below; empty: as the camera is set when its first frame comes
    bool points = false;
};
inline constexpr std::array<const char*, 2> kImageWords{"raw", "rect"}, kDepthWords{"depth", "range"};

// Where it is. Fails when it is not installed.
std::string publisherProgram();

// Its command line, for the worker with this socket.
std::vector<std::string> publisherWords(const std::string& socket, const Publishing& publishing);
