// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Two cameras that see each other's light, so they light in turn. One thread reads them one after the other.
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
    // There is one slave, and each camera has its own id.
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
            // The order in which cameras are listed may change from run to run, but their serial numbers do not.
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
    // The library takes no lock and all cameras share one frame buffer, so one thread makes all calls.
    bool done = false;
    if (count < 2)
        std::fprintf(stderr, "Two cameras are needed, but %d is attached.\n", count);
    else
        done = start(0) && start(1) && readInTurn(cameras, 3);
    for (int n = 0; n < count; ++n)
        vqdDeviceClose(n); // this also stops grabbing
    return done ? 0 : 1;
}
