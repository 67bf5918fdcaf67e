// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "host/state_folder.h"

#include <cstdlib>

std::filesystem::path stateFolder()
{
    const char* const state = getenv("XDG_STATE_HOME");
    if (state != nullptr && *state == '/')
        return std::filesystem::path(state) / "vqd";
    const char* const home = getenv("HOME");
    if (home == nullptr || *home != '/')
        return {};
    return std::filesystem::path(home) / ".local/state/vqd";
}
