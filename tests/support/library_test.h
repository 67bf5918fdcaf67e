// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The fixture of tests on the shipped library over virtual USB. Each test is a process of its own, so that every global
// starts as at load.
#pragma once

#include <array>
#include <iostream>
#include <string>

#include <gtest/gtest.h>

#include "VQD_API.h"
#include "support/virtual_usb.h"

// The conversation when the library sends an image, and when it prepares the camera for images before a grab start.
inline const std::string kImageSent = "B1 64, wait 100000, out 512, wait 200000";
inline const std::string kBurst =
    "wait 100000, B1 64, wait 100000, B1 64, wait 100000, B1 64, wait 100000, B1 64, wait 100000, B1 64";

class LibraryTest : public testing::Test
{
protected:
    // What the library prints while `action` runs.
    template <typename Action> static std::string printed(Action action)
    {
        testing::internal::CaptureStdout();
        action();
        const std::string lines = testing::internal::GetCapturedStdout();
        if (HasFailure())
            std::cerr << lines; // otherwise a failed expectation inside `action` would go unseen
        return lines;
    }

    // Lists all cameras and returns their number, or the failure. The conversation starts again after it.
    int list()
    {
        int result = 0;
        printed([&] { result = vqdGetDeviceList(devices.data(), &count); });
        usb.conversation();
        return result == 1 ? count : result;
    }

    // Plugs, lists and opens one camera, with every line swallowed.
    sim::Camera& openCamera(const sim::Config& config = {})
    {
        const size_t port = usb.plug(config);
        list();
        printed([&] { EXPECT_EQ(vqdDeviceOpen(static_cast<int>(port)), 1); });
        usb.conversation();
        return usb.camera(port);
    }

    void TearDown() override { EXPECT_EQ(usb.violations, std::vector<std::string>{}); }

    VirtualUsb& usb = VirtualUsb::get();
    std::array<DevInfo, VQD_MAX_DEVICES> devices{};
    int count = 77;

    std::array<uint16_t, VQD_PIXELS> amplitude{}, depth{};
    std::array<uint16_t*, 2> images{amplitude.data(), depth.data()};
    FrameInfo info{};
};
