// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Writing to a camera's EEPROM with a way back: what was there is in a file before, and is compared after.
#pragma once

#include <functional>
#include <span>

#include "camera.h"

// Keeps what the camera held in a file of its own, below $XDG_STATE_HOME or ~/.local/state, and says where. Of each
// camera the first file and the newest 19 stay.
void backUp(const Camera& camera, const std::string& what, std::span<const uint8_t> bytes);

enum class Unreadable {
    refuse, // an EEPROM that was not read would lose its serial number and lens
    replace
};

// Asks, backs the EEPROM up, runs `write`, which ends with the host's image saved, and reads back.
// Call requireConfirmable() before the cameras are touched.
void changeEeprom(const Camera& camera, const std::string& question, Unreadable unreadable,
                  const std::function<void()>& write);

// Runs `change` on the settings of a claimed camera; with `save` as changeEeprom() does, and keeps them.
void changeSettings(const Camera& camera, bool save, const std::string& question, const std::function<void()>& change);

inline constexpr char kNotSaved[] =
    "not saved; the next program that lists the camera has its stored settings again (--save keeps)";

// Saves the host's image. A camera does not start to capture by itself.
void saveImage(const Camera& camera);
