// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// See eeprom_change.h.
#include "eeprom_change.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <vector>

#include "common.h"
#include "host/failure.h"
#include "interrupt.h"
#include "output.h"
#include "config/param_image.h"

namespace
{

std::filesystem::path backupDirectory()
{
    const char* const state = getenv("XDG_STATE_HOME");
    if (state != nullptr && *state == '/')
        return std::filesystem::path(state) / "vqd";
    const char* const home = getenv("HOME");
    if (home == nullptr || *home != '/')
        throw Failure(kFailed, "there is no home folder for a backup; XDG_STATE_HOME names another place");
    return std::filesystem::path(home) / ".local/state/vqd";
}

void requireBackupDirectory(const std::filesystem::path& directory)
{
    try {
        requireWritableDirectory(directory);
    } catch (const Failure& failure) {
        throw Failure(failure.code, std::string("no backup, so nothing is written: ") + failure.what() +
                                        " (XDG_STATE_HOME names another place)");
    }
}

// Files of other names are somebody's own. The first backup of a camera stays for ever: it may be the only one from
// before all changes.
void prune(const std::filesystem::path& directory, const std::string& start)
{
    constexpr size_t kMost = 20;
    std::vector<std::pair<std::filesystem::file_time_type, std::filesystem::path>> files;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
        const std::string name = entry.path().filename();
        if (name.starts_with(start) && name.find_first_not_of("0123456789-", start.size()) == name.size() - 4)
            files.emplace_back(entry.last_write_time(error), entry.path());
    }
    std::sort(files.begin(), files.end());
    for (size_t i = 1; i + kMost <= files.size(); ++i)
        std::filesystem::remove(files[i].second, error);
}

// The library calls a refused write a success: what the EEPROM holds afterwards decides.
void requireStored(const Camera& camera)
{
    unsigned char image[VQD_IMAGE_BYTES];
    if (vqdParameterData_Load(camera.nIndex, image) != 1)
        failOn(camera, "the written settings are lost");
    const EepromRead stored = readEeprom(camera.place);
    if (!stored.whole())
        failOn(camera, "the EEPROM could not be read back, so it is not known what it holds now");
    if (!std::equal(stored.bytes.begin(), stored.bytes.end(), image))
        throw Failure(kVerification, "the EEPROM does not hold what was written");
    detail("the EEPROM holds what was written");
}

} // namespace

void backUp(const Camera& camera, const std::string& what, std::span<const uint8_t> bytes)
{
    const std::filesystem::path directory = backupDirectory();
    requireBackupDirectory(directory);
    const time_t now = time(nullptr);
    char when[32];
    strftime(when, sizeof when, "%Y%m%d-%H%M%S", gmtime(&now));
    const std::string start = what + "-" + camera.szSerialNumber + "-", name = start + when;
    std::filesystem::path path = directory / (name + ".bin");
    for (int i = 2; std::filesystem::exists(path); ++i)
        path = directory / (name + "-" + std::to_string(i) + ".bin");
    writeFile(path, bytes);
    note("%s as it was is in %s", what.c_str(), path.c_str());
    prune(directory, start);
}

void changeEeprom(const Camera& camera, const std::string& question, Unreadable unreadable,
                  const std::function<void()>& write)
{
    if (unreadable == Unreadable::refuse && camera.known != Known::read)
        failOn(camera, "the EEPROM is empty or could not be read; writing would lose its serial number and lens (vqd "
                       "eeprom restore writes a backup)");
    confirm(nameOf(camera) + ", serial " + camera.szSerialNumber + ": " + question);
    const EepromRead before = readEeprom(camera.place);
    if (before.whole())
        backUp(camera, "eeprom", before.bytes);
    else if (unreadable == Unreadable::refuse)
        failOn(camera, "the EEPROM could not be read for a backup, so nothing is written");
    else
        note("the EEPROM cannot be read: there is nothing to back up");
    endIfInterrupted();
    write();
    requireStored(camera);
}

void saveImage(const Camera& camera)
{
    unsigned char image[VQD_IMAGE_BYTES];
    if (vqdParameterData_Load(camera.nIndex, image) != 1)
        failOn(camera, "the settings could not be read");
    image[kGrab] = 0;
    if (vqdEEPROM_ParameterData_Save(camera.nIndex, image) != 1)
        failOn(camera, "the EEPROM was not written");
}

void changeSettings(const Camera& camera, bool save, const std::string& question, const std::function<void()>& change)
{
    if (!save)
        return change();
    changeEeprom(camera, question, Unreadable::refuse, [&] {
        change();
        saveImage(camera);
    });
}
