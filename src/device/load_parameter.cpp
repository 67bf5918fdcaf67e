// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The parameter load: the camera's EEPROM image, or factory settings, and everything derived from it in a fixed order.
#include <cstring>

#include "config/eeprom.h"
#include "config/param_image.h"
#include "device/device_state.h"
#include "device/message.h"

static void loadImage(int n)
{
    uint8_t* image = stCamParam[n].image;
    memset(image, 0, VQD_EEPROM_BYTES);
    uint8_t block[VQD_EEPROM_BYTES];
    if (ReadEeprom(HandleOf(n), block)) {
        memcpy(image, block, sizeof block);
        return;
    }
    FillFactoryImage(image);
    PrintNumber("%d VQD EEPROM Parameter Load Fail, Load Default Parameter.\n", n);
}

int LoadParameter(int n)
{
    if (!IsDeviceNumber(n)) {
        VQDDevice_ErrorChecked(n);
        return 0;
    }
    loadImage(n);
    m_nDepthGab = ReadU16(stCamParam[n].image, kDepthGap);
    return 1;
}
