// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The libusb contexts behind the slots. Normally there is the default context alone. libusb's device list is only as
// fresh as the udev events that reach the process, and none do in a container with a network namespace of its own; a
// new context looks at the bus afresh, so cameras are found through one where the list is proven stale.
#pragma once

#include <libusb.h>

// Counts one use of the default context. False when libusb cannot start.
bool BeginContextUse();

// Makes sure that there is a context to list from. False when libusb cannot start.
bool EnsureContext();

// Gives the device list back if one is held.
void ReleaseDeviceList();

static constexpr int kFreshContexts = 2; // worth trying one after the other: the default one anew, a second one

// Replaces the context to list from by a fresh one. No handle open: the default context is ended and started again.
// Otherwise, or when that was tried already (`again`; the application holds the default context too): a second one.
// False when there is none to be had; the context and the device list before stay.
bool TakeFreshContext(bool again);

// To be called after the slot's handle was closed: ends the context that it came from when no other handle did.
void EndIfUnused(libusb_context* context);

// Gives everything back, the library's uses of the default context included, unless a slot still holds a handle.
void EndContextUses();
