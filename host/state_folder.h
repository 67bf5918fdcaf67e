// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Where this user's programs keep what should outlive them and no other machine needs.
#pragma once

#include <filesystem>

// $XDG_STATE_HOME/vqd, else ~/.local/state/vqd; empty when there is no home. It need not exist.
std::filesystem::path stateFolder();
