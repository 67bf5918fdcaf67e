// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The fixture of tests that have the depth pipeline judge raw planes of their own, without a camera's doing.
#pragma once

#include <cstring>

#include "support/library_test.h"

using Plane = std::array<uint16_t, VQD_PIXELS>;

class RawFrameTest : public LibraryTest
{
protected:
    Plane rawAmplitude{}, rawDepth{};

    void SetUp() override
    {
        openCamera();
        for (int i = 0; i < VQD_PIXELS; ++i) { // no distortion, no correction
            m_fXp2[i] = fDist_x2[i] = static_cast<float>(i % 320);
            m_fYp2[i] = fDist_y2[i] = static_cast<float>(i / 320);
            m_dOrthogonalData[i] = 1;
        }
        range(0, 65535);
    }

    static void range(int minimum, int maximum)
    {
        stCamParam[0].nMinDepth = minimum;
        stCamParam[0].nMaxDepth = maximum;
    }

    static void product(const char* name) { strcpy(m_stDevInfo[0].szDeviceName, name); }

    // Has the library judge the raw planes: after the third failed transfer and a re-open it takes `buffers` as it is.
    void read()
    {
        buffers[0] = 0x44;
        buffers[1] = 0x33;
        memcpy(buffers + 512, rawAmplitude.data(), sizeof rawAmplitude);
        memcpy(buffers + 154112, rawDepth.data(), sizeof rawDepth);
        amplitude.fill(0xDEAD); // every pixel is written
        depth.fill(0xDEAD);
        usb.fail("bulk", -7, 1, 3);
        printed([&] { ASSERT_EQ(vqdReadFromDevice(0, images.data(), &info), 1); });
    }
};
