// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What one input starts with: the library as at load, over an empty virtual bus. At the end everything is closed and
// given back.
#pragma once

#include <memory>
#include <vector>

#include "VQD_API.h"
#include "input.h"
#include "support/virtual_usb.h"

// When a result is none of these, prints a line and ends the program.
int requireOneOf(int result, const std::vector<int>& allowed, const char* call);

// Images of exactly the size that a frame read fills, so that a sanitizer sees each pixel beyond them.
struct Frame {
    using Plane = std::vector<uint16_t>;

    int read(int n);
    bool untouched() const { return amplitude == Frame().amplitude && depth == Frame().depth; }

    Plane amplitude = Plane(VQD_PIXELS, 0xDEAD), depth = amplitude;
    FrameInfo info{};
};

class FreshLibrary
{
public:
    FreshLibrary();
    ~FreshLibrary();
    FreshLibrary(const FreshLibrary&) = delete;
    FreshLibrary& operator=(const FreshLibrary&) = delete;

    // Plugs in a camera that always has a frame ready. The first one gets device number 0.
    sim::Camera& plug(const char* product);
    // Lists a single camera.
    DevInfo list();
    // Whatever came before, everything can be closed, and then a good camera on a good bus delivers a frame.
    void requireRecovery();

    VirtualUsb& usb = VirtualUsb::get();

private:
    void closeAll();
};
