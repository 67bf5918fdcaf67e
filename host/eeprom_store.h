// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Writing a camera's EEPROM, and looking at what it holds afterwards.
#pragma once

#include "host/listed_camera.h"
#include "host/save_pause.h"

// Writes these bytes, or the host's image, unless the EEPROM held them `before`: it wears out with writes. False when
// nothing was written. Fails with SavedTooSoon when the last write was less than kSavePauseSeconds ago. A camera does
// not start to capture by itself, so the image is saved with its light and capture switched off.
bool saveEeprom(const ListedCamera& camera, const Eeprom& eeprom, const EepromRead& before,
                TooSoon tooSoon = TooSoon::refuse);
bool saveImage(const ListedCamera& camera, const EepromRead& before, TooSoon tooSoon = TooSoon::refuse);

// The bytes that saveImage() would write.
Eeprom eepromOfImage(const ListedCamera& camera);

// Fails unless the EEPROM holds the start of the host's image. The library's result is not enough, since it calls a
// refused write a success.
void requireStored(const ListedCamera& camera);
