/* SPDX-FileCopyrightText: VQD_API contributors
 * SPDX-License-Identifier: Apache-2.0
 *
 * The first frame: how far away is what the first camera looks at?
 */
#include <stdio.h>
#include <VQD_API.h>

/* Each takes 150 kB, which is too much for some stacks. */
static uint16_t amplitude[VQD_PIXELS], depth[VQD_PIXELS];

static int firstFrame(int n)
{
    uint16_t* images[2] = {amplitude, depth};
    FrameInfo info;
    int result;

    if (vqdDeviceOpen(n) != VQD_OK || vqdGrabStart(n) != VQD_OK)
        return VQD_FAILED;
    result = vqdReadFromDevice(n, images, &info);
    vqdGrabStop(n);
    return result;
}

int main(void)
{
    DevInfo cameras[VQD_MAX_DEVICES];
    int count = 0, n, result;

    if (vqdGetDeviceList(cameras, &count) != VQD_OK) {
        fputs("No camera found. Is it plugged in, and may you open it?\n", stderr);
        return 1;
    }
    result = firstFrame(0); /* if it fails, the library has printed why */
    if (result == VQD_OK) {
        const unsigned ahead = depth[VQD_WIDTH * (VQD_HEIGHT / 2) + VQD_WIDTH / 2];
        if (ahead != 0) /* 0 marks a pixel without a depth */
            printf("%s, serial %s: %u mm ahead\n", cameras[0].szDeviceName, cameras[0].szSerialNumber, ahead);
        else
            printf("%s, serial %s: nothing to measure ahead\n", cameras[0].szDeviceName, cameras[0].szSerialNumber);
    }
    for (n = 0; n < count; ++n)
        vqdDeviceClose(n); /* because listing has opened a handle to each */
    return result == VQD_OK ? 0 : 1;
}
