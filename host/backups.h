// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What cameras held before it was replaced, in files below $XDG_STATE_HOME or ~/.local/state.
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

// Writes a new file for this camera and returns its path. Of each camera the first file and the newest 19 stay. Fails
// when there is no place for the file; the caller then writes nothing to the camera.
std::filesystem::path backUp(const std::string& what, const std::string& serial, std::span<const uint8_t> bytes);
