// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Virtual cameras on a bus of this process, read through the unmodified libusb.
#include "bench_usb.h"

#include <sys/resource.h>

#include <cstdio>
#include <ctime>

#include <libusb.h>

#include "VQD_API.h"
#include "bus.h"
#include "compare.h"
#include "device/base/device_state.h"
#include "frame/depth_pipeline.h"
#include "scene.h"
#include "usb/vendor_channel.h"

namespace
{

uint16_t amplitude[VQD_PIXELS], depth[VQD_PIXELS];
uint16_t* images[2] = {amplitude, depth};
FrameInfo info;

// Plugs cameras in and starts them. All are host-corrected, with every correction switched on.
bool start(sim::Bus& bus, int cameras, double framesPerSecond)
{
    for (int n = 0; n < cameras; ++n) {
        sim::Config config;
        config.serial[6] = static_cast<uint8_t>(n);
        config.framesPerSecond = framesPerSecond;
        config.source = sim::makeScene({.kind = sim::SceneKind::plane});
        bus.add(config);
    }
    static DevInfo list[VQD_MAX_DEVICES];
    int count = 0;
    if (vqdGetDeviceList(list, &count) != VQD_OK || count != cameras)
        return false;
    for (int n = 0; n < cameras; ++n)
        if (vqdDeviceOpen(n) != VQD_OK || vqdSetUndistortion(n, 1) != 1 || vqdGrabStart(n) != VQD_OK)
            return false;
    m_bFPPN = m_bOrthogonal = m_bRemoveEdge = 1;
    return true;
}

void stop(int cameras)
{
    for (int n = 0; n < cameras; ++n)
        vqdDeviceClose(n);
}

void compareRead()
{
    const auto bus = sim::makeMockBus();
    if (!start(*bus, 1, 0)) {
        std::puts("The virtual camera does not start");
        return;
    }
    const auto ours = [] { vqdReadFromDevice(0, images, &info); };
    const auto theirs = [] {
        int moved = 0;
        libusb_bulk_transfer(HandleOf(0), kEndpointFrame, buffers, sizeof buffers, &moved, kFrameTimeoutMs);
        RunDepthPipeline(0, buffers, amplitude, depth);
    };
    compare("vqdReadFromDevice / bare bulk transfer and pipeline", 1.05, ours, theirs);
    stop(1);
}

double threadSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// The time of the reading thread alone, because the cameras and the bus live in other threads. A frame is always ready.
void shareOfCpu(int cameras)
{
    constexpr int kFrames = 300;
    const auto bus = sim::makeMockBus();
    if (!start(*bus, cameras, 0)) {
        std::puts("The virtual cameras do not start");
        return;
    }
    const double begin = threadSeconds();
    for (int i = 0; i < kFrames; ++i)
        vqdReadFromDevice(i % cameras, images, &info);
    const double read = (threadSeconds() - begin) / kFrames;
    const double pipelineBegin = threadSeconds();
    for (int i = 0; i < kFrames; ++i)
        RunDepthPipeline(i % cameras, buffers, amplitude, depth);
    const double pipeline = (threadSeconds() - pipelineBegin) / kFrames;
    std::printf("%2d cameras at 30 frames/s: %.2f %% of a core, %.2f %% without the transfer\n", cameras,
                3000 * read * cameras, 3000 * pipeline * cameras);
    stop(cameras);
}

} // namespace

void CompareUsb()
{
    compareRead();
    for (const int cameras : {1, 4, 10})
        shareOfCpu(cameras);
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("largest resident size of this process: %ld MiB\n", usage.ru_maxrss / 1024);
}
