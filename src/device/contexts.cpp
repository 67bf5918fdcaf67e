// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "device/contexts.h"

#include "device/base/device_state.h"

static void endDefaultUses()
{
    for (; m_nContextUses > 0; --m_nContextUses) {
        libusb_exit(nullptr);
        m_bContextUseEnded = true;
    }
}

// Makes `context` the one to list from. The previous one ends unless a slot still needs it.
static void listFrom(libusb_context* context)
{
    ReleaseDeviceList(); // its devices belong to the previous context
    libusb_context* const before = m_pListContext;
    m_pListContext = context;
    EndIfUnused(before);
}

bool BeginContextUse()
{
    if (libusb_init(nullptr) < 0)
        return false;
    if (m_nContextUses++ == 0)
        listFrom(nullptr); // just started, so its list is the freshest
    return true;
}

bool EnsureContext()
{
    return m_pListContext != nullptr || m_nContextUses > 0 || BeginContextUse();
}

void ReleaseDeviceList()
{
    if (m_pDevList == nullptr)
        return;
    libusb_free_device_list(m_pDevList, 1);
    m_pDevList = nullptr;
}

void EndIfUnused(libusb_context* context)
{
    if (context == nullptr && m_pListContext == nullptr)
        return; // the default context in its ordinary role ends with EndContextUses()
    for (int n = 0; n < VQD_MAX_DEVICES; ++n)
        if (HandleOf(n) != nullptr && m_pSlotContext[n] == context)
            return;
    if (context == nullptr) {
        endDefaultUses();
        return;
    }
    if (m_pListContext == context) {
        ReleaseDeviceList();
        m_pListContext = nullptr;
    }
    libusb_exit(context);
}

bool TakeFreshContext(bool again)
{
    if (SlotsWithHandle() == 0 && !again) {
        listFrom(nullptr);
        endDefaultUses();
        BeginContextUse(); // GetUsbDevice() tries again and reports a failure
        return true;
    }
    if (again && m_pListContext != nullptr)
        return false; // a context that is already fresh does not show the camera either
    libusb_context* fresh = nullptr;
    if (libusb_init(&fresh) < 0)
        return false;
    listFrom(fresh);
    return true;
}

// libusb before 1.0.24 crashes if a default context is ended that does not exist.
#if LIBUSB_API_VERSION >= 0x01000108
static constexpr bool kExitWithoutContextIsSafe = true;
#else
static constexpr bool kExitWithoutContextIsSafe = false;
#endif

void EndContextUses()
{
    if (SlotsWithHandle() > 0)
        return;
    listFrom(nullptr);
    endDefaultUses();
    // A close ends a use of the default context even if the library has begun none since the last close.
    if (!m_bContextUseEnded && kExitWithoutContextIsSafe)
        libusb_exit(nullptr);
    m_bContextUseEnded = false;
}
