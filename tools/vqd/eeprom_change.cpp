// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// See eeprom_change.h.
#include "eeprom_change.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>

#include "common.h"
#include "exit_codes.h"
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
    return home != nullptr && *home == '/' ? std::filesystem::path(home) / ".local/state/vqd" : ".";
}

// The library calls a refused write a success: what the EEPROM holds afterwards decides.
void requireStored(const Camera& camera)
{
    unsigned char image[VQD_IMAGE_BYTES];
    if (vqdParameterData_Load(camera.nIndex, image) != 1)
        failOn(camera, "the written settings are lost");
    const Eeprom stored = readEeprom(camera);
    if (!std::equal(stored.begin(), stored.end(), image))
        throw Failure(kVerification, "the EEPROM does not hold what was written");
    detail("the EEPROM holds what was written");
}

} // namespace

void backUp(const Camera& camera, const std::string& what, std::span<const uint8_t> bytes)
{
    const std::filesystem::path directory = backupDirectory();
    requireWritableDirectory(directory);
    const time_t now = time(nullptr);
    char when[32];
    strftime(when, sizeof when, "%Y%m%d-%H%M%S", gmtime(&now));
    const std::string name = what + "-" + camera.szSerialNumber + "-" + when;
    std::filesystem::path path = directory / (name + ".bin");
    for (int i = 2; std::filesystem::exists(path); ++i)
        path = directory / (name + "-" + std::to_string(i) + ".bin");
    writeFile(path, bytes);
    note("%s as it was is in %s", what.c_str(), path.c_str());
}

Eeprom readEeprom(const Camera& camera)
{
    unsigned char image[VQD_IMAGE_BYTES];
    if (vqdEEPROM_ParameterData_Load(camera.nIndex, image) != 1)
        failOn(camera, "the EEPROM could not be read");
    Eeprom eeprom;
    std::copy_n(image, eeprom.size(), eeprom.begin());
    if (isFactory(eeprom))
        requirePresent(camera, "the EEPROM could not be read");
    return eeprom;
}

bool isFactory(const Eeprom& eeprom)
{
    Eeprom factory{};
    FillFactoryImage(factory.data());
    return eeprom == factory;
}

void changeEeprom(const Camera& camera, const std::string& question, Unreadable unreadable,
                  const std::function<void()>& write)
{
    const Eeprom before = readEeprom(camera);
    if (!isFactory(before))
        backUp(camera, "eeprom", before);
    else if (unreadable == Unreadable::refuse)
        throw Failure(kFailed, "the EEPROM is empty or could not be read; writing would lose its serial number and "
                               "lens (vqd eeprom restore writes a backup)");
    else
        note("the EEPROM is empty or can not be read: there is nothing to back up");
    confirm("camera " + std::to_string(camera.nIndex) + ", serial " + camera.szSerialNumber + ": " + question);
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
