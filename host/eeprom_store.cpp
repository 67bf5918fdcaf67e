// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Saves through the library, and reads back without it.
#include "host/eeprom_store.h"

#include <algorithm>

#include "config/param_image.h"

bool saveEeprom(const ListedCamera& camera, const Eeprom& eeprom, const EepromRead& before, TooSoon tooSoon)
{
    if (before.whole() && before.bytes == eeprom) {
        // The library takes over what it saves, so it is told of these bytes all the same.
        std::copy(eeprom.begin(), eeprom.end(), stCamParam[camera.nIndex].image);
        return false;
    }
    const SaveTurn turn(camera.szSerialNumber, tooSoon);
    const int result = vqdEEPROM_ParameterData_Save(camera.nIndex, eeprom.data());
    turn.saved();
    if (result != 1)
        failOn(camera, "the EEPROM was not written");
    return true;
}

Eeprom eepromOfImage(const ListedCamera& camera)
{
    unsigned char image[VQD_IMAGE_BYTES];
    if (vqdParameterData_Load(camera.nIndex, image) != 1)
        failOn(camera, "the settings could not be read");
    image[kGrab] = 0;
    Eeprom eeprom;
    std::copy_n(image, eeprom.size(), eeprom.begin());
    return eeprom;
}

bool saveImage(const ListedCamera& camera, const EepromRead& before, TooSoon tooSoon)
{
    return saveEeprom(camera, eepromOfImage(camera), before, tooSoon);
}

void requireStored(const ListedCamera& camera)
{
    unsigned char image[VQD_IMAGE_BYTES];
    if (vqdParameterData_Load(camera.nIndex, image) != 1)
        failOn(camera, "the written settings are lost");
    const EepromRead stored = readEeprom(camera.place);
    if (!stored.whole())
        failOn(camera, "the EEPROM could not be read back, so it is not known what it holds now");
    if (!std::equal(stored.bytes.begin(), stored.bytes.end(), image))
        throw Failure(kVerification, "the EEPROM does not hold what was written");
}
