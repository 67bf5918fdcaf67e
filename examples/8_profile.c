/* SPDX-FileCopyrightText: VQD_API contributors
 * SPDX-License-Identifier: Apache-2.0
 *
 * A frame with the values that this machine keeps of a camera: the exact lens, the FPPN table, which libusb on Linux
 * cannot read, and the orthogonal factors. "vqd profile export --plain FILE" writes them as words and numbers.
 */
#include <stdio.h>
#include <string.h>

#include <VQD_API.h>

enum { kFppnValues = 4800, kLensValues = 10 };

static struct {
    char serial[64];
    float lens[kLensValues]; /* fx, fy, cx, cy, k1, k2, k3, p1, p2, skew */
    int fppn[kFppnValues];
    double factors[VQD_PIXELS];
    int hasLens, hasFppn, hasFactors;
} profile;

static uint16_t amplitude[VQD_PIXELS], depth[VQD_PIXELS];

/* The whole file is read before any table of the library changes. */
static int readProfile(const char* path)
{
    FILE* file = fopen(path, "r");
    char word[16] = "";
    int i, good = file != NULL;

    while (good && fscanf(file, "%15s", word) == 1) {
        if (strcmp(word, "serial") == 0) {
            good = fscanf(file, "%63s", profile.serial) == 1;
        } else if (strcmp(word, "lens") == 0) {
            for (i = 0; i < kLensValues; ++i)
                good = good && fscanf(file, "%f", &profile.lens[i]) == 1;
            profile.hasLens = 1;
        } else if (strcmp(word, "fppn") == 0) {
            for (i = 0; i < kFppnValues; ++i)
                good = good && fscanf(file, "%d", &profile.fppn[i]) == 1;
            profile.hasFppn = 1;
        } else if (strcmp(word, "orthogonal") == 0) {
            for (i = 0; i < VQD_PIXELS; ++i)
                good = good && fscanf(file, "%lf", &profile.factors[i]) == 1;
            profile.hasFactors = 1;
        } else {
            good = 0;
        }
    }
    if (file != NULL)
        fclose(file);
    return good;
}

/* To be called after the camera was listed: the listing loads the camera's own values into the same tables. The depth
 * lens comes first, because rays and maps are made of it. Nothing is sent to the camera, and a re-open keeps all of it.
 */
static void applyProfile(int n)
{
    if (profile.hasLens) {
        const LensIntrinsic k = {profile.lens[0], profile.lens[1], profile.lens[2], profile.lens[3]};
        memcpy(m_fIntrinsicParam[n], profile.lens, sizeof m_fIntrinsicParam[n]);
        memcpy(m_fDistorParam[n], profile.lens + 4, sizeof m_fDistorParam[n]);
        BuildPointCloudTable(k);
        BuildUndistortionMap(n);
    }
    if (profile.hasFactors)
        memcpy(m_dOrthogonalData, profile.factors, sizeof profile.factors);
    if (profile.hasFppn)
        memcpy(m_nEEPROMFPPNBuf, profile.fppn, sizeof profile.fppn);
}

static int oneFrame(int n)
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

static int writeDepth(const char* path)
{
    FILE* file = fopen(path, "wb");
    const int written = file != NULL && fwrite(depth, sizeof depth, 1, file) == 1;
    return file != NULL && fclose(file) == 0 && written;
}

int main(int argc, char** argv)
{
    DevInfo cameras[VQD_MAX_DEVICES];
    int count = 0, done = 0;

    if (argc != 3) {
        fprintf(stderr, "Usage: %s PROFILE DEPTH\n", argv[0]);
        return 2;
    }
    if (!readProfile(argv[1])) {
        fprintf(stderr, "%s is not a file of vqd profile export --plain\n", argv[1]);
        return 2;
    }
    /* The library has one set of tables, so that more cameras need a process each. */
    if (vqdGetDeviceList(cameras, &count) != VQD_OK || count != 1)
        fputs("There must be one camera.\n", stderr);
    else if (strcmp(cameras[0].szSerialNumber, profile.serial) != 0)
        fprintf(stderr, "%s is the profile of camera %s.\n", argv[1], profile.serial);
    else {
        applyProfile(0);
        done = oneFrame(0) == VQD_OK && writeDepth(argv[2]);
        printf("depth of camera %s with its profile: %s\n", profile.serial, done ? argv[2] : "failed");
    }
    while (count-- > 0)
        vqdDeviceClose(count);
    return done ? 0 : 1;
}
