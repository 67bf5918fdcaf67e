// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Parameter images between EEPROM, host and application.
#include "config/eeprom.h"

#include <cstring>

#include "config/param_image.h"
#include "device/base/device_check.h"
#include "device/base/device_state.h"
#include "device/base/message.h"
#include "usb/vendor_channel.h"

bool ReadEeprom(struct libusb_device_handle* handle, uint8_t* block128)
{
    memset(block128, 0, VQD_EEPROM_BYTES);
    const int moved = usb_control_transfer(handle, kVendorIn, kRequestReadEeprom, kEepromRegion, 0, block128,
                                           VQD_EEPROM_BYTES, kRequestTimeoutMs);
    return moved >= 1 && block128[kSignature] == kSignatureValue;
}

int SaveParameter(int n)
{
    if (!IsDeviceNumberOrReport(n))
        return 0;
    uint8_t block[VQD_EEPROM_BYTES];
    memcpy(block, stCamParam[n].image, sizeof block);
    if (usb_control_transfer(HandleOf(n), kVendorOut, kRequestWriteEeprom, kEepromRegion, 0, block, sizeof block,
                             kRequestTimeoutMs) >= 0) {
        RenderSerial(block, m_stIdentity[n].serial);
        PrintLine("EEPROM Parameter Save Success.");
    }
    return 1;
}

int vqdEEPROM_ParameterData_Save(int n, const unsigned char* data)
{
    const int checked = VQDDevice_ErrorChecked(n);
    if (checked != VQD_OK)
        return checked;
    if (data == nullptr)
        return 0;
    memmove(stCamParam[n].image, data, VQD_EEPROM_BYTES);
    return SaveParameter(n);
}

int vqdParameterData_Load(int n, unsigned char* out)
{
    if (!IsReady(n) || out == nullptr)
        return 0;
    memmove(out, stCamParam[n].image, VQD_IMAGE_BYTES);
    return 1;
}
