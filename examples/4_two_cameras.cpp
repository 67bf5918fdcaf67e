// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Two cameras that see each other's light: they take turns, and one thread reads them one after the other.
#include <cstdio>
#include <vector>

#include <VQD_API.h>

// The mean depth of the pixels that have one, in millimetres.
static double meanDepth(const std::vector<uint16_t>& depth)
{
    double sum = 0, count = 0;
    for (const uint16_t millimetres : depth)
        if (millimetres != 0) {
            sum += millimetres;
            count += 1;
        }
    return count > 0 ? sum / count : 0;
}

static bool start(int n)
{
    // Camera 0 leads, with one follower; a camera's id is its place in the order.
    return vqdDeviceOpen(n) == VQD_OK && vqdSetMultiCamMode(n, 1, 1, n) == VQD_OK && vqdGrabStart(n) == VQD_OK;
}

static bool readInTurn(const DevInfo* cameras, int frames)
{
    std::vector<uint16_t> amplitude(VQD_PIXELS), depth(VQD_PIXELS);
    uint16_t* images[] = {amplitude.data(), depth.data()};
    for (int i = 0; i < frames; ++i)
        for (const int n : {0, 1}) {
            FrameInfo info;
            if (vqdReadFromDevice(n, images, &info) != VQD_OK)
                return false;
            // The order in which cameras are listed may change from run to run; their serial numbers do not.
            std::printf("%s: frame %llu, %.0f mm on average\n", cameras[n].szSerialNumber,
                        static_cast<unsigned long long>(info.nFrameCount), meanDepth(depth));
        }
    return true;
}

int main()
{
    DevInfo cameras[VQD_MAX_DEVICES];
    int count = 0;
    if (vqdGetDeviceList(cameras, &count) != VQD_OK)
        return 1;
    // The library keeps no lock and shares one frame buffer: calls come from one thread, also for different cameras.
    bool done = false;
    if (count < 2)
        std::fprintf(stderr, "%d camera is attached, two are needed\n", count);
    else
        done = start(0) && start(1) && readInTurn(cameras, 3);
    for (int n = 0; n < count; ++n)
        vqdDeviceClose(n); // stops grabbing too
    return done ? 0 : 1;
}
