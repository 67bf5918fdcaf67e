/* SPDX-FileCopyrightText: VQD_API contributors
 * SPDX-License-Identifier: Apache-2.0
 *
 * Settings: reads some, changes them, and with "--keep" stores them in the camera for good.
 */
#include <stdio.h>
#include <string.h>
#include <VQD_API.h>

/* A setter returns VQD_OK once the camera has the value. Otherwise it prints why not and returns 0. */
static int change(int n)
{
    int nearest = 0, farthest = 0;

    if (vqdSetDepthRange(n, 300, 4000) != VQD_OK || vqdSetOffset(n, -5) != VQD_OK)
        return VQD_FAILED;
    /* Reading the range back also makes it the one that the host clips with. */
    if (vqdGetDepthRange(n, &nearest, &farthest) != VQD_OK)
        return VQD_FAILED;
    printf("range %d to %d mm, offset %d\n", nearest, farthest, vqdGetOffset(n));
    return VQD_OK;
}

/* A refused write returns VQD_OK too, so only reading the camera again shows what it has kept. */
static int keep(int n)
{
    ParamImage wanted, kept;

    if (vqdParameterData_Load(n, wanted) != VQD_OK || vqdEEPROM_ParameterData_Save(n, wanted) != VQD_OK ||
        vqdEEPROM_ParameterData_Load(n, kept) != VQD_OK || memcmp(wanted, kept, VQD_EEPROM_BYTES) != 0)
        return VQD_FAILED;
    puts("stored");
    return VQD_OK;
}

int main(int argc, char** argv)
{
    DevInfo cameras[VQD_MAX_DEVICES];
    int count = 0, n, result;

    if (vqdGetDeviceList(cameras, &count) != VQD_OK) {
        fputs("No camera found.\n", stderr);
        return 1;
    }
    result = vqdDeviceOpen(0);
    if (result == VQD_OK) {
        printf("%d MHz, offset %d\n", vqdGetModuleFrequency(0), vqdGetOffset(0));
        result = change(0);
    }
    if (result == VQD_OK && argc > 1 && strcmp(argv[1], "--keep") == 0)
        result = keep(0);
    for (n = 0; n < count; ++n)
        vqdDeviceClose(n);
    return result == VQD_OK ? 0 : 1;
}
