// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The steps around each write to an EEPROM.
#include "eeprom_change.h"

#include <chrono>
#include <thread>

#include <CLI/CLI.hpp>

#include "host/backups.h"
#include "host/eeprom_store.h"
#include "host/formatted.h"

#include "interrupt.h"
#include "messages.h"
#include "options.h"

void refuseImplausible(const std::string& file, const std::vector<Implausible>& found)
{
    if (found.empty() || common.force)
        return;
    std::string text = file + ": ";
    for (const Implausible& one : found)
        text += one.text + "; ";
    throw Failure(kUsage, text + "--force writes it all the same");
}

Calibration calibrationToWrite(const Json& json, const std::string& file)
{
    Calibration calibration = calibrationFrom(json, file);
    refuseImplausible(file, implausibleIn(calibration));
    return calibration;
}

void backUpAndTell(const ListedCamera& camera, const std::string& what, std::span<const uint8_t> bytes)
{
    const std::filesystem::path file = backUp(what, camera.szSerialNumber, bytes);
    note("%s as it was is in %s", what.c_str(), file.c_str());
}

void saveWithPause(const ListedCamera& camera, const Eeprom& eeprom, const EepromRead& before)
{
    for (;;) {
        try {
            if (!saveEeprom(camera, eeprom, before, common.force ? TooSoon::save : TooSoon::refuse))
                note("the EEPROM holds this already, so nothing was written");
            return;
        } catch (const SavedTooSoon& soon) {
            note("%s (--force saves at once)", soon.what());
            const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(soon.left);
            while (std::chrono::steady_clock::now() < end) {
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
                endIfInterrupted();
            }
        }
    }
}

void addForcedSave(CLI::App& command)
{
    command.add_flag("--force", common.force, "Save at once, even shortly after another save");
}

void changeEeprom(const ListedCamera& camera, const std::string& question, Unreadable unreadable,
                  const std::function<void(const EepromRead& before)>& write)
{
    if (unreadable == Unreadable::refuse && camera.known != Known::read)
        failOn(camera, "the EEPROM is empty or could not be read; writing would lose its serial number and lens (vqd "
                       "eeprom restore writes a backup)");
    confirm(nameOf(camera) + ", serial " + camera.szSerialNumber + ": " + question);
    const EepromRead before = readEeprom(camera.place);
    if (before.whole())
        backUpAndTell(camera, "eeprom", before.bytes);
    else if (unreadable == Unreadable::refuse)
        failOn(camera, "the EEPROM could not be read for a backup, so nothing is written");
    else
        note("the EEPROM cannot be read, so there is nothing to back up");
    endIfInterrupted();
    write(before);
    requireStored(camera);
    detail("the EEPROM holds what was written");
}

void changeSettings(const ListedCamera& camera, bool save, const std::string& question,
                    const std::function<void()>& change)
{
    if (!save)
        return change();
    changeEeprom(camera, question, Unreadable::refuse, [&](const EepromRead& before) {
        change();
        saveWithPause(camera, eepromOfImage(camera), before);
    });
}

void showDifferences(Output& output, Json json, const std::vector<EepromDifference>& differences)
{
    std::string text;
    for (const auto& [before, after] : differences)
        text += formatted("%-38s %s -> %s%s%s\n", before.name.c_str(), before.value.c_str(), after.value.c_str(),
                          *before.unit ? " " : "", before.unit);
    json["differences"] = differencesJson(differences);
    output.finish(json, text);
}

void showChange(Output& output, const char* command, const ListedCamera& camera, const Eeprom& after)
{
    Json json = document(command);
    json["camera"] = identityJson(camera);
    showDifferences(output, std::move(json), differences(camera.eeprom, after));
}
