// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The frame read: transfer with its retries and re-opens, header, pipeline, stamp and count.
#include "device/base/clock.h"
#include "device/base/device_state.h"
#include "device/base/message.h"
#include "frame/depth_pipeline.h"
#include "frame/frame_header.h"
#include "frame/frame_stamp.h"
#include "frame/frame_state.h"
#include "usb/vendor_channel.h"

static constexpr int kMostRetries = 2; // the third failure in a row re-opens the camera

// Re-opens the camera if the budget allows it, after printing `line` if it is not null. Returns VQD_OK, or what the
// read is to return.
static int reopen(int n, const char* line)
{
    if (ReopenBudgetSpent()) {
        SleepOneSecond();
        return VQD_REOPEN_EXHAUSTED;
    }
    if (line != nullptr)
        PrintLine(line);
    m_nDeviceOpen[n] = 0;
    return vqdDeviceReOpen(n);
}

// Reads one frame into `buffers`. If this re-opened the camera, nothing was transferred; the caller processes the
// previous contents of `buffers`.
static int transferFrame(int n)
{
    for (;;) {
        int moved = 0;
        const int result =
            usb_bulk_transfer(HandleOf(n), kEndpointFrame, buffers, sizeof buffers, &moved, kFrameTimeoutMs);
        if (result == 0)
            break;
        PrintNumbers("ReadFromDevice Read Error, Device Reset2, %d\n", result);
        if (++m_nRetriesCount <= kMostRetries)
            continue;
        m_nRetriesCount = 0;
        return reopen(n, nullptr);
    }
    m_nRetriesCount = 0;
    return VQD_OK;
}

int vqdReadFromDevice(int n, uint16_t** images, FrameInfo* info)
{
    if (m_nReadingStop == 1)
        return 0;
    if (!IsDeviceNumber(n))
        return VQDDevice_ErrorChecked(n);
    if (HandleOf(n) == nullptr) {
        const int reopened = reopen(n, "ReadFromDevice Read Error, Device Reset1");
        if (reopened != VQD_OK)
            return reopened;
    }
    const int transferred = transferFrame(n);
    if (transferred != VQD_OK)
        return transferred;
    if (HasStartCode(buffers)) {
        TakeHeader(n, buffers);
        if (images == nullptr || images[0] == nullptr || images[1] == nullptr)
            return 0;
        RunDepthPipeline(n, buffers, images[0], images[1]);
    } else {
        const int reopened = reopen(n, "ReadFromDevice Read Error, Device Reset");
        if (reopened != VQD_OK)
            return reopened;
        PrintLine("incorrect Start code ReadBuf Init");
    }
    if (info == nullptr)
        return 0;
    StampFrame(g_vqdHighReslTimer[n], m_nTimeStampStartFlag, m_bStarted[n], m_pFrameInfo[n], info);
    return VQD_OK;
}
