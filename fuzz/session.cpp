// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The library's globals are put back to what they were at load: an input must not depend on those before it.
#include "session.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "device/device_state.h"
#include "frame/frame_state.h"

namespace
{

struct Global {
    void* at;
    size_t bytes;
};

#define GLOBAL(name)                                                                                                   \
    {                                                                                                                  \
        &name, sizeof name                                                                                             \
    }
const Global kGlobals[] = {
#include "exported_globals.inc"
    GLOBAL(m_stUsbSlot),    GLOBAL(m_stIdentity),       GLOBAL(m_pDevList),     GLOBAL(m_nDevListCount),
    GLOBAL(m_nContextUses), GLOBAL(m_bContextUseEnded), GLOBAL(m_pListContext), GLOBAL(m_pSlotContext),
    GLOBAL(m_bStarted),     GLOBAL(m_bStarted_RGB),
};
#undef GLOBAL

std::vector<uint8_t> readGlobals()
{
    std::vector<uint8_t> bytes;
    for (const Global& global : kGlobals) {
        const auto* first = static_cast<const uint8_t*>(global.at);
        bytes.insert(bytes.end(), first, first + global.bytes);
    }
    return bytes;
}

void restoreGlobals()
{
    static const std::vector<uint8_t> atLoad = readGlobals();
    const uint8_t* from = atLoad.data();
    for (const Global& global : kGlobals) {
        memcpy(global.at, from, global.bytes);
        from += global.bytes;
    }
}

} // namespace

int requireOneOf(int result, std::initializer_list<int> allowed, const char* call)
{
    for (const int each : allowed)
        if (result == each)
            return result;
    fprintf(stderr, "%s ended with %d\n", call, result);
    abort();
}

ImagePair::ImagePair()
    : m_amplitude(new uint16_t[VQD_PIXELS]),
      m_depth(new uint16_t[VQD_PIXELS]), m_images{m_amplitude.get(), m_depth.get()}
{
    for (uint16_t* image : m_images)
        std::fill_n(image, VQD_PIXELS, kUntouched);
}

bool ImagePair::untouched() const
{
    for (const uint16_t* image : m_images)
        for (int i = 0; i < VQD_PIXELS; ++i)
            if (image[i] != kUntouched)
                return false;
    return true;
}

Session::Session()
{
    restoreGlobals();
    usb.reset();
}

Session::~Session()
{
    closeAll();
}

// The configuration descriptor may stay: the next open replaces it.
void Session::closeAll()
{
    for (int n = 0; n < VQD_MAX_DEVICES; ++n)
        requireOneOf(vqdDeviceClose(n), {VQD_OK}, "vqdDeviceClose");
    for (const std::string& violation : usb.violations)
        require(false, violation.c_str());
    require(usb.openHandles() == 0, "every handle is closed");
    require(usb.listsHeld == 0, "every device list is freed");
    require(usb.contextUses + usb.furtherContexts == 0, "every use of a context is given back");
    require(usb.configurationsHeld == (configDesc != nullptr), "at most the latest configuration descriptor is held");
    usb_free_config_descriptor(configDesc);
    configDesc = nullptr;
}

void Session::requireRecovery()
{
    closeAll();
    usb.reset();
    plug("VQD-RS110");
    list();
    requireOneOf(vqdDeviceOpen(0), {1}, "vqdDeviceOpen of a good camera");
    requireOneOf(vqdGrabStart(0), {1}, "vqdGrabStart of a good camera");
    ImagePair images;
    FrameInfo info{};
    requireOneOf(vqdReadFromDevice(0, images.images(), &info), {1}, "vqdReadFromDevice of a good camera");
}

sim::Camera& Session::plug(const char* product)
{
    sim::Config config;
    config.product = product;
    config.framesPerSecond = 0;
    return usb.camera(usb.plug(config));
}

// The entry lies alone on the heap, so that a sanitizer sees a second one.
DevInfo Session::list()
{
    const auto entry = std::make_unique<DevInfo>();
    int count = 0;
    require(vqdGetDeviceList(entry.get(), &count) == VQD_OK && count == 1, "a camera that answers is listed");
    return *entry;
}

// libFuzzer's watch on the memory would sleep in virtual time, on a thread of its own; the sanitizer watches instead.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    static char watch[] = "-rss_limit_mb=0";
    static std::vector<char*> arguments(*argv, *argv + *argc);
    arguments.insert(arguments.begin() + 1, watch);
    *argc = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);
    *argv = arguments.data();
    return 0;
}

extern "C" const char* __asan_default_options()
{
    return "hard_rss_limit_mb=2048:detect_stack_use_after_return=1";
}
