// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Options of vqd sim for one camera or for all, addressed as in a fault plan: "2:24061100000099".
#pragma once

#include <string>

struct ForCamera {
    size_t camera; // 1 is the first on the command line, 0 means all
    std::string value;

    bool concerns(size_t index) const { return camera == 0 || camera == index + 1; }
};

// Fails with a usage error when there are not so many cameras.
ForCamera addressed(const std::string& text, size_t cameras);
