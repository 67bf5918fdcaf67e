// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The process of one camera. The supervisor starts it with its end of a socket pair and the listening socket.
#pragma once

#include <string>
#include <vector>

struct ChildOptions {
    std::string camera;                // serial number or port; empty for the first one
    std::vector<std::string> settings; // KEY=VALUE
    bool profile = true;               // whether this machine's profile of the camera is used
};

inline constexpr int kLinkDescriptor = 3, kListeningDescriptor = 4;

// Works until it is told to stop. Returns the exit code; what went wrong is told over the link.
int runChild(const ChildOptions& options);
