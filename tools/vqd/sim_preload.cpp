// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// See sim_preload.h. What the process starts inherits the preload.
#include "sim_preload.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

#include "host/failure.h"

static constexpr char kPreload[] = "libumockdev-preload.so.0";
static constexpr char kGuard[] = "VQD_SIM_PRELOADED"; // set for the run of this program that has the preload

static void prependVariable(const char* name, const std::string& value)
{
    const char* present = getenv(name);
    const bool empty = present == nullptr || *present == '\0';
    setenv(name, (empty ? value : value + ":" + present).c_str(), 1);
}

void enterPreload(char** arguments)
{
    if (getenv(kGuard) != nullptr) {
        unsetenv(kGuard);
        return;
    }
    setenv(kGuard, "1", 1);
    prependVariable("LD_PRELOAD", kPreload);
    // The address sanitizer refuses to run behind a preload, unless it is told not to look.
    prependVariable("ASAN_OPTIONS", "verify_asan_link_order=0");
    execv("/proc/self/exe", arguments);
    throw Failure(kFailed, std::string("/proc/self/exe: ") + strerror(errno));
}
