// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// State of the cameras on the USB side: the slots behind the device numbers and what is known about the camera in each.
#pragma once

#include <cstddef>
#include <cstdint>

#include <libusb.h>

#include "VQD_API.h"
#include "device/base/usb_ids.h"

// The USB side of one device number. Usable when bOpened is not 0 and pHandle not null.
struct UsbDeviceSlot {
    libusb_device* pDevice;        // where the handle came from; not owned; compared, never read
    libusb_device_handle* pHandle; // owned by the slot: opened by enumeration, closed by release
    uint16_t nVendorId;
    uint16_t nProductId;
    uint8_t bOpened; // 1 while the slot holds a handle
    uint8_t nBusNumber;
    uint8_t nDeviceAddress;
};
static_assert(sizeof(UsbDeviceSlot) == 24);

// Which camera a device number stands for. It outlives the release of the slot, so that a re-open finds the same camera
// again.
struct CameraIdentity {
    bool known;
    bool closed; // by the application, which has not asked for the camera since
    uint8_t bus;
    uint8_t address;
    uint16_t vendorId;
    uint16_t productId;
    char serial[15]; // as in DevInfo, of the last EEPROM image that was read or written; empty before
};

extern UsbDeviceSlot m_stUsbSlot[VQD_MAX_DEVICES];
extern CameraIdentity m_stIdentity[VQD_MAX_DEVICES];
extern libusb_device** m_pDevList;
extern int m_nDevListCount;
extern int m_nContextUses;
extern bool m_bContextUseEnded;
extern libusb_context* m_pListContext;
extern libusb_context* m_pSlotContext[VQD_MAX_DEVICES];

inline bool IsDeviceNumber(int n)
{
    return static_cast<unsigned>(n) < VQD_MAX_DEVICES;
}

inline libusb_device_handle* HandleOf(int n)
{
    return m_stUsbSlot[n].pHandle;
}

inline constexpr int kFullReopenBudget = 600;
inline constexpr int kLeastReopenBudget = 500;

// A re-open is then refused, and so is a read that needs one.
inline bool ReopenBudgetSpent()
{
    return m_nReopenTime < kLeastReopenBudget;
}

// Counts the device numbers that hold a handle. m_nDeviceCount follows its own arithmetic and may differ after
// failures.
int SlotsWithHandle();
