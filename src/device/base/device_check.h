// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The checks of a device number that nearly every exported function starts with. A failed one prints its line.
#pragma once

#include "device/base/device_state.h"

// Whether number n has an open camera with a handle.
inline bool IsReady(int n)
{
    return VQDDevice_ErrorChecked(n) == VQD_OK;
}

// For functions that need a valid number but no open camera. Prints the line of a camera that is not open if it is
// invalid.
inline bool IsDeviceNumberOrReport(int n)
{
    return IsDeviceNumber(n) || IsReady(n);
}
