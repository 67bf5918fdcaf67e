// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The process of one camera. The supervisor starts it with its end of a socket pair and the listening socket.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct ChildOptions {
    std::string camera;                // serial number or port; empty for the first one
    std::vector<std::string> settings; // KEY=VALUE
    bool profile = true;               // whether this machine's profile of the camera is used
    std::string recordings;            // the folder for them; empty when nothing may be recorded
    uint64_t keepFree = 512'000'000;   // bytes of its disk that recordings leave free
};

inline constexpr int kLinkDescriptor = 3, kListeningDescriptor = 4;

// Works until it is told to stop. Returns the exit code; what went wrong is told over the link.
int runChild(const ChildOptions& options);
