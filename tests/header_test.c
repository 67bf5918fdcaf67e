/* SPDX-FileCopyrightText: VQD_API contributors
 * SPDX-License-Identifier: Apache-2.0
 *
 * The public header in a C11 program that binds the library's data and functions.
 */
#include <stdio.h>
#include <string.h>

#include "VQD_API.h"

/* An application may have a function with the name of one of the library's. */
int Round(float value);

int Round(float value)
{
    (void)value;
    return -12345;
}

int main(void)
{
    DevInfo list[VQD_MAX_DEVICES];
    unsigned char image[VQD_IMAGE_BYTES];
    uint16_t pixel = 0;
    uint16_t* images[2] = {&pixel, &pixel};
    FrameInfo info;
    memset(list, 0, sizeof list);
    m_nReadingStop = 1; /* the library must see this: data is bound by copy relocation */
    m_nReopenTime = 0;
    if (vqdReadFromDevice(0, images, &info) != 0)
        return 1;
    m_nReadingStop = 0;
    if (vqdParameterData_Load(0, image) != VQD_FAILED || vqdDeviceReOpen(0) != VQD_REOPEN_EXHAUSTED)
        return 2;
    return stCamParam[0].image[4] == 0 && sizeof(CamParam) == 532 && sizeof list[0] == 1036 ? 0 : 3;
}
