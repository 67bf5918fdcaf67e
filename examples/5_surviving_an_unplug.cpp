// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Going on after an unplug. The frame read finds the camera again by itself, so three things are left to do: notice it,
// drop the repeated frame, and decide how long to wait.
#include <cstdio>
#include <vector>

#include <VQD_API.h>

constexpr int kFrames = 30;
constexpr int kFullBudget = 600; // a read gives up with VQD_REOPEN_EXHAUSTED below 500, which takes some 10 seconds
constexpr int kSearches = 6;     // reads that may give up in a row: about a minute

// Returns how many of kFrames fresh frames arrived.
static int readFrames(int n)
{
    std::vector<uint16_t> amplitude(VQD_PIXELS), depth(VQD_PIXELS);
    uint16_t* images[] = {amplitude.data(), depth.data()};
    int fresh = 0, searches = 1;
    while (fresh < kFrames) {
        FrameInfo info;
        m_nDeviceOpen[n] = 0; // the library sets it to 1 when it has opened the camera again
        const int result = vqdReadFromDevice(n, images, &info);
        const bool reopened = m_nDeviceOpen[n] == 1;
        if (result == VQD_OK && reopened) {
            std::printf("the camera is back after frame %d\n", fresh);
            searches = 1;
            continue; // the images hold the last frame before the unplug again
        }
        if (result == VQD_OK) {
            ++fresh;
            continue;
        }
        // VQD_FAILED: the camera was there but did not start. VQD_REOPEN_EXHAUSTED: it did not come back in time.
        if (++searches > kSearches)
            break;
        m_nReopenTime = kFullBudget;
    }
    return fresh;
}

int main()
{
    DevInfo cameras[VQD_MAX_DEVICES];
    int count = 0;
    if (vqdGetDeviceList(cameras, &count) != VQD_OK)
        return 1;
    int fresh = 0;
    if (vqdDeviceOpen(0) == VQD_OK && vqdGrabStart(0) == VQD_OK)
        fresh = readFrames(0);
    std::printf("%d frames\n", fresh);
    for (int n = 0; n < VQD_MAX_DEVICES; ++n)
        vqdDeviceClose(n);
    return fresh == kFrames ? 0 : 1;
}
