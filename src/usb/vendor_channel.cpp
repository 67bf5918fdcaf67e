// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Requests without data, the read buffer's initialisation and the one way an image reaches the camera.
#include "usb/vendor_channel.h"

#include <cstring>

#include "device/base/clock.h"
#include "device/base/device_check.h"
#include "device/base/device_state.h"
#include "device/base/message.h"

static constexpr unsigned kRequestGapUs = 100'000;  // the camera needs it between requests, and before an image
static constexpr unsigned kImageSettleUs = 200'000; // and this to act on an image
static constexpr int kTakeImageRequests = 5;
static constexpr uint16_t kEmptyBytes = 64; // data stage of a request without data
static constexpr int kDrainBytes = 2048;

// A request with 64 zero bytes. Returns the bytes moved or libusb's negative error.
static int sendEmptyRequest(int n, uint8_t request)
{
    unsigned char zeros[kEmptyBytes] = {};
    return usb_control_transfer(HandleOf(n), kVendorOut, request, 0, 0, zeros, sizeof zeros, kRequestTimeoutMs);
}

// Does the same, but returns false after printing `text` if it failed.
static bool requestOrReport(int n, uint8_t request, const char* text)
{
    if (sendEmptyRequest(n, request) >= 0)
        return true;
    PrintLine(text);
    return false;
}

bool ResetReadBuffer(int n, const char* resetText)
{
    if (!requestOrReport(n, kRequestResetReadBuffer, resetText))
        return false;
    SleepUs(kRequestGapUs);
    return requestOrReport(n, kRequestStartReadBuffer, "Error in b3 Control transfer");
}

int vqdWriteBufInit(int n)
{
    if (!IsReady(n))
        return 0;
    int moved = 0;
    for (int i = 0; i < kTakeImageRequests; ++i) {
        SleepUs(kRequestGapUs);
        moved = sendEmptyRequest(n, kRequestTakeImage);
        if (moved < 0) {
            PrintLine("Error in b1 Control transfer");
            return 0;
        }
    }
    return moved;
}

int vqdReadBufReset(int n)
{
    if (!IsReady(n))
        return 0;
    const int moved = sendEmptyRequest(n, kRequestResetReadBuffer);
    if (moved < 0) {
        PrintLine("Error in b2 Control transfer");
        return 0;
    }
    return moved;
}

int vqdReadBufInit(int n)
{
    if (!IsReady(n))
        return 0;
    SleepUs(kRequestGapUs);
    if (!requestOrReport(n, kRequestFlushReadBuffer, "Error in b4 Control transfer"))
        return 0;
    unsigned char rest[kDrainBytes] = {};
    int moved = 0;
    if (usb_bulk_transfer(HandleOf(n), kEndpointFrame, rest, sizeof rest, &moved, kRequestTimeoutMs) != 0) {
        PrintLine("Error Read Fifo Data");
        return 0;
    }
    return ResetReadBuffer(n, "Error in b2 Control transfer");
}

int vqdWriteToDevice(int n, const unsigned char* image)
{
    if (!IsReady(n) || image == nullptr)
        return 0;
    if (!requestOrReport(n, kRequestTakeImage, "vqdWriteToDevice Contol transfer Error."))
        return 0;
    SleepUs(kRequestGapUs);
    // libusb does not write to the buffer of an OUT transfer.
    unsigned char* bytes = const_cast<unsigned char*>(image);
    int moved = 0;
    if (usb_bulk_transfer(HandleOf(n), kEndpointImage, bytes, VQD_IMAGE_BYTES, &moved, kRequestTimeoutMs) != 0) {
        PrintLine("vqdWriteToDevice Bulk transfer Error.");
        return 0;
    }
    memmove(stCamParam[n].image, image, VQD_IMAGE_BYTES);
    SleepUs(kImageSettleUs);
    return 1;
}

int SendImage(int n)
{
    return vqdWriteToDevice(n, stCamParam[n].image);
}
