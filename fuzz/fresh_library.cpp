// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Puts the library's globals back to what they were at load, because an input must not depend on those before it.
#include "fresh_library.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "device/base/device_state.h"
#include "frame/frame_state.h"

namespace
{

#define GLOBAL(name) std::span(reinterpret_cast<uint8_t*>(&name), sizeof name)
const std::span<uint8_t> kGlobals[] = {
#include "exported_globals.inc"
    GLOBAL(m_stUsbSlot),    GLOBAL(m_stIdentity),       GLOBAL(m_pDevList),     GLOBAL(m_nDevListCount),
    GLOBAL(m_nContextUses), GLOBAL(m_bContextUseEnded), GLOBAL(m_pListContext), GLOBAL(m_pSlotContext),
    GLOBAL(m_bStarted),     GLOBAL(m_bStarted_RGB),
};
#undef GLOBAL

std::vector<std::vector<uint8_t>> readGlobals()
{
    std::vector<std::vector<uint8_t>> values;
    for (const auto& global : kGlobals)
        values.emplace_back(global.begin(), global.end());
    return values;
}

void restoreGlobals()
{
    static const auto atLoad = readGlobals();
    for (size_t i = 0; i < atLoad.size(); ++i)
        std::ranges::copy(atLoad[i], kGlobals[i].begin());
}

} // namespace

int requireOneOf(int result, const std::vector<int>& allowed, const char* call)
{
    if (std::ranges::count(allowed, result) > 0)
        return result;
    fprintf(stderr, "%s ended with %d\n", call, result);
    abort();
}

int Frame::read(int n)
{
    uint16_t* images[] = {amplitude.data(), depth.data()};
    return vqdReadFromDevice(n, images, &info);
}

FreshLibrary::FreshLibrary()
{
    restoreGlobals();
    usb.reset();
}

FreshLibrary::~FreshLibrary()
{
    closeAll();
}

// The configuration descriptor may stay: the next open replaces it.
void FreshLibrary::closeAll()
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

void FreshLibrary::requireRecovery()
{
    closeAll();
    usb.reset();
    plug("VQD-RS110");
    list();
    requireOneOf(vqdDeviceOpen(0), {1}, "vqdDeviceOpen of a good camera");
    requireOneOf(vqdGrabStart(0), {1}, "vqdGrabStart of a good camera");
    requireOneOf(Frame().read(0), {1}, "vqdReadFromDevice of a good camera");
}

sim::Camera& FreshLibrary::plug(const char* product)
{
    sim::Config config;
    config.product = product;
    config.framesPerSecond = 0;
    return usb.camera(usb.plug(config));
}

// The entry lies alone on the heap, so that a sanitizer sees a second one.
DevInfo FreshLibrary::list()
{
    const auto entry = std::make_unique<DevInfo>();
    int count = 0;
    require(vqdGetDeviceList(entry.get(), &count) == VQD_OK && count == 1, "a camera that answers is listed");
    return *entry;
}

// libFuzzer watches the memory from a thread that would sleep in virtual time, so the sanitizer watches instead.
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
