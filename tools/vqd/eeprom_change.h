// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Commands that write to a camera's EEPROM: they ask, keep what was there in a file, compare afterwards, and show what
// has changed.
#pragma once

#include <functional>

#include "host/eeprom_fields.h"
#include "host/lens_json.h"
#include "host/listed_camera.h"
#include "host/plausibility.h"

#include "output.h"

namespace CLI
{
class App;
}

// Fails with a usage error when something was found in the file, unless --force was given.
void refuseImplausible(const std::string& file, const std::vector<Implausible>& found);

// The calibration that a file holds, refused like that.
Calibration calibrationToWrite(const Json& json, const std::string& file);

// Keeps what the camera held in a file, and says where.
void backUpAndTell(const ListedCamera& camera, const std::string& what, std::span<const uint8_t> bytes);

// What to do with an EEPROM that was not read: writing to it would lose its serial number and lens.
enum class Unreadable { refuse, replace };

// Writes these bytes, or says that the EEPROM holds them already. When the last write was too short ago, it waits; a
// signal ends the wait, and --force saves at once.
void saveWithPause(const ListedCamera& camera, const Eeprom& eeprom, const EepromRead& before);

// Adds --force for a command that has no other use for it.
void addForcedSave(CLI::App& command);

// Asks, backs the EEPROM up, runs `write`, which ends by saving the host's image, and reads back. Call
// requireConfirmable() before any camera is touched.
void changeEeprom(const ListedCamera& camera, const std::string& question, Unreadable unreadable,
                  const std::function<void(const EepromRead& before)>& write);

// Runs `change` on the settings of a claimed camera. With `save` they are kept, in the way of changeEeprom().
void changeSettings(const ListedCamera& camera, bool save, const std::string& question,
                    const std::function<void()>& change);

inline constexpr char kNotSaved[] =
    "not saved: the next program that lists the camera gets its stored settings again (--save keeps these)";

// The end of a command: a line for each difference, or the document with the differences added.
void showDifferences(Output& output, Json json, const std::vector<EepromDifference>& differences);

// What a command has made of the EEPROM that the camera had when it was listed.
void showChange(Output& output, const char* command, const ListedCamera& camera, const Eeprom& after);
