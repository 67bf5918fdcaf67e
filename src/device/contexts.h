// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The libusb contexts behind the slots. Normally there is only the default context. libusb's device list is as fresh as
// the udev events that reach the process, and none reach a container with a network namespace of its own. A new context
// looks at the bus afresh, so cameras are found through one if the list is proven stale.
#pragma once

#include <libusb.h>

// Begins one more use of the default context. Returns false if libusb cannot start.
bool BeginContextUse();

// Makes sure that there is a context to list from. Returns false if libusb cannot start.
bool EnsureContext();

// Gives the device list back if one is held.
void ReleaseDeviceList();

static constexpr int kFreshContexts = 2; // tried one after the other: the default one anew, then a second one

// Replaces the context to list from by a fresh one. If no handle is open, the default context is ended and started
// again. If one is, or if that was in vain (`again`) because the application holds the default context too, a second
// one is started. Returns false if there is none to be had; the previous context and device list then stay.
bool TakeFreshContext(bool again);

// Ends the context of a handle that was just closed if no other handle comes from it. The default context stays while
// lists come from it.
void EndIfUnused(libusb_context* context);

// Gives everything back, including the library's uses of the default context, unless a slot still holds a handle.
void EndContextUses();
