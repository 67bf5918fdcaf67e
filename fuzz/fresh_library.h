// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// One input's world: the library as at load over an empty virtual bus. At the end everything is closed and given back.
#pragma once

#include <array>
#include <memory>
#include <vector>

#include "VQD_API.h"
#include "input.h"
#include "support/virtual_usb.h"

// Ends the program after a line when a result is none of those.
int requireOneOf(int result, const std::vector<int>& allowed, const char* call);

// Images of exactly the size that a frame read fills, so that a sanitizer sees each pixel too many.
class ImagePair
{
public:
    static constexpr uint16_t kUntouched = 0xDEAD;

    ImagePair();
    uint16_t** images() { return m_images.data(); }
    const uint16_t* amplitude() const { return m_amplitude.get(); }
    const uint16_t* depth() const { return m_depth.get(); }
    bool untouched() const;

private:
    std::unique_ptr<uint16_t[]> m_amplitude, m_depth;
    std::array<uint16_t*, 2> m_images;
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
    // Whatever came before, everything can be closed, and a good camera on a good bus delivers a frame then.
    void requireRecovery();

    VirtualUsb& usb = VirtualUsb::get();

private:
    void closeAll();
};
