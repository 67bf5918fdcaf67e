// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Where the sockets of workers are, so that readers find them.
#pragma once

#include <filesystem>
#include <vector>

// The folder in which this user's workers make their sockets: $VQD_RUNTIME_DIR, else /run/vqd or
// /run/vqd/serve where this user may write, else vqd in $XDG_RUNTIME_DIR, else /tmp/vqd-UID. Creates it. Fails when it
// cannot be written, or when somebody else could replace what is in it.
std::filesystem::path runtimeFolder();

// The folders in which this user may find sockets of workers, also those of other users.
std::vector<std::filesystem::path> runtimeFolders();
