// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The fixture of tests that give the depth pipeline raw planes of their own instead of a camera's.
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
        usb.answerBulkIn = [this](std::span<uint8_t> data, size_t& moved) {
            data[0] = 0x44;
            data[1] = 0x33;
            memcpy(&data[512], rawAmplitude.data(), sizeof rawAmplitude);
            memcpy(&data[154112], rawDepth.data(), sizeof rawDepth);
            moved = data.size();
            return 0;
        };
    }

    static void range(int minimum, int maximum)
    {
        stCamParam[0].nMinDepth = minimum;
        stCamParam[0].nMaxDepth = maximum;
    }

    static void product(const char* name) { strcpy(m_stDevInfo[0].szDeviceName, name); }

    void read()
    {
        amplitude.fill(0xDEAD); // the pipeline must write every pixel
        depth.fill(0xDEAD);
        ASSERT_EQ(vqdReadFromDevice(0, images.data(), &info), 1);
    }
};
