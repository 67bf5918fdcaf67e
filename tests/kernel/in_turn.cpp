// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Lists in one process until so many cameras are there, 20 s at the most, then reads so many frames from each in turn, and
// prints a checksum of each image.
//   in_turn CAMERAS FRAMES
#include <cstdio>
#include <cstdlib>
#include <unistd.h>
#include <vector>

#include "VQD_API.h"

namespace
{

bool list(DevInfo* cameras, int wanted)
{
    for (int tries = 0; tries < 100; ++tries) {
        int count = 0;
        vqdGetDeviceList(cameras, &count);
        if (count == wanted)
            return true;
        fprintf(stderr, "%d cameras\n", count);
        usleep(200'000);
    }
    return false;
}

// FNV-1a
uint64_t checksum(const std::vector<uint16_t>& image)
{
    uint64_t sum = 0xcbf29ce484222325;
    for (const uint16_t value : image)
        sum = (sum ^ value) * 0x100000001b3;
    return sum;
}

bool read(const DevInfo* cameras, int n)
{
    std::vector<uint16_t> amplitude(VQD_PIXELS), depth(VQD_PIXELS);
    uint16_t* images[] = {amplitude.data(), depth.data()};
    FrameInfo info;
    if (vqdReadFromDevice(n, images, &info) != VQD_OK)
        return false;
    fprintf(stderr, "%s frame %llu: %016llx %016llx\n", cameras[n].szSerialNumber,
            static_cast<unsigned long long>(info.nFrameCount), static_cast<unsigned long long>(checksum(amplitude)),
            static_cast<unsigned long long>(checksum(depth)));
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    const int wanted = argc == 3 ? atoi(argv[1]) : 0;
    if (wanted < 1 || wanted > VQD_MAX_DEVICES)
        return fprintf(stderr, "usage: in_turn CAMERAS FRAMES\n"), 2;
    DevInfo cameras[VQD_MAX_DEVICES];
    if (!list(cameras, wanted))
        return 1;
    bool good = true;
    for (int n = 0; n < wanted; ++n)
        good = good && vqdDeviceOpen(n) == VQD_OK && vqdGrabStart(n) == VQD_OK;
    for (int frames = atoi(argv[2]); frames > 0; --frames)
        for (int n = 0; n < wanted; ++n)
            good = good && read(cameras, n);
    for (int n = 0; n < wanted; ++n)
        vqdDeviceClose(n);
    return good ? 0 : 1;
}
