// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Which workers there should be.
#pragma once

#include <span>

#include "serve/configuration.h"

// A camera as a look at the bus found it.
struct SeenCamera {
    std::string port;
    std::string serial; // empty when it is not known
};

// What the workers of these cameras are called: by the configuration; else by the serial number, under which a camera
// is found again at any port; else by the port. In the order of the configuration, then of the bus.
std::vector<std::string> workersFor(const Configuration& configuration, std::span<const SeenCamera> cameras);
