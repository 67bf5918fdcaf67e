// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Going on after an unplug: the frame read finds the camera again by itself. What is left to do: notice it, throw the
// repeated frame away, and decide how long to wait.
#include <cstdio>
#include <vector>

#include <VQD_API.h>

constexpr int kFrames = 30;
constexpr int kFullBudget = 600; // a search ends, with -3, below 500: after some 10 seconds
constexpr int kSearches = 6;     // a minute, then give up

// Fresh frames that came in, out of kFrames.
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
            continue; // the images hold the frame before the unplug once more
        }
        if (result == VQD_OK) {
            ++fresh;
            continue;
        }
        // VQD_FAILED: the camera was there but did not start. -3: it was not there in time.
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
