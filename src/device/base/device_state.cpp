// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The globals of the device area, the layouts they share with applications, and their one-time initialisation.
#include "device/base/device_state.h"

#include <cstring>

#include "device/base/clock.h"

static_assert(sizeof(DevInfo) == 1036 && offsetof(DevInfo, nIndex) == 0 && offsetof(DevInfo, szReserved) == 4);
static_assert(offsetof(DevInfo, szVendorName) == 260 && offsetof(DevInfo, szDeviceName) == 516);
static_assert(offsetof(DevInfo, szSerialNumber) == 772 && offsetof(DevInfo, nVendorId) == 1028);
static_assert(offsetof(DevInfo, nProductId) == 1030 && offsetof(DevInfo, nModelFlag) == 1032);
static_assert(offsetof(DevInfo, nReserved) == 1034);
static_assert(sizeof(StreamTimer) == 24 && offsetof(StreamTimer, start) == 8 && offsetof(StreamTimer, latest) == 16);

DevInfo m_stDevInfo[VQD_MAX_DEVICES];  // identities; enumeration clears nIndex, listing fills the entries
int m_nDeviceOpen[VQD_MAX_DEVICES];    // for the application: 1 set by re-open, 0 by close and failures
int m_nDeviceCount;                    // cameras of the latest enumeration, less one for each release; may go negative
int m_nReopenTime = kFullReopenBudget; // re-open attempts left; refused below 500; the application may raise it
int m_nInit;                           // 1 once InitParameter has run; never cleared
int m_nUnInit;                         // 1 once a close has run; not read here
libusb_config_descriptor* configDesc;  // of the last open that fetched one; owned here, not read here
char m_szbufName[100];                 // for the application
char m_szDeviceName[20];               // for the application
char m_szParamName[100];               // for the application
StreamTimer g_vqdHighReslTimer[VQD_MAX_DEVICES];    // ms since 1970; init set once, the rest by the frame read
StreamTimer g_vqdHighReslTimerRGB[VQD_MAX_DEVICES]; // ms since 1970; init set once, the rest by the colour read

UsbDeviceSlot m_stUsbSlot[VQD_MAX_DEVICES];   // filled by enumeration, emptied by release
CameraIdentity m_stIdentity[VQD_MAX_DEVICES]; // written by enumeration and listing, read by re-open
libusb_device** m_pDevList;                   // libusb's device list; held from GetUsbDevice to the enumeration's end
int m_nDevListCount;                          // entries in it, or libusb's negative error
int m_nContextUses;             // libusb_init calls on the default context that libusb_exit has not yet balanced
bool m_bContextUseEnded;        // whether a use of the library's own has ended since the last close
libusb_context* m_pListContext; // where device lists come from; null: the default context
libusb_context* m_pSlotContext[VQD_MAX_DEVICES]; // where the slot's handle came from; null: the default context

static constexpr uint32_t kColourWidth = 1280;
static constexpr uint32_t kColourHeight = 960;

int SlotsWithHandle()
{
    int count = 0;
    for (const UsbDeviceSlot& slot : m_stUsbSlot)
        count += slot.pHandle != nullptr;
    return count;
}

int InitParameter(void)
{
    if (m_nInit == 1)
        return 0;
    m_nDeviceCount = 0;
    for (int n = 0; n < VQD_MAX_DEVICES; ++n) {
        g_vqdHighReslTimer[n].init = static_cast<double>(NowMs());
        g_vqdHighReslTimerRGB[n].init = static_cast<double>(NowMs());
        memset(stCamParam[n].image, 0, VQD_EEPROM_BYTES);
        m_pRGBFrameInfo[n] = {kColourWidth, kColourHeight, 0, 0};
        m_pFrameInfo[n] = {VQD_WIDTH, VQD_HEIGHT, 0, 0};
    }
    m_nInit = 1;
    return 1;
}

void UnInitParameter(void)
{
    m_nUnInit = 1;
}
