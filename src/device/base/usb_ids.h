// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The USB ids of the camera family.
#pragma once

#include <cstdint>

struct UsbId {
    uint16_t vendor;
    uint16_t product;
};

inline constexpr uint16_t kVendorId = 0x03A4;
inline constexpr UsbId kUsbIds[] = {
    {kVendorId, 0x871A}, {kVendorId, 0x8718}, {kVendorId, 0x871C}, {kVendorId, 0x8720},
    {kVendorId, 0x8722}, {kVendorId, 0x8724}, {kVendorId, 0x8726}, {kVendorId, 0x8728},
    {kVendorId, 0x872A}, {kVendorId, 0x8730}, {kVendorId, 0x8732},
};
