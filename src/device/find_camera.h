// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Finding the camera of one device number again after its handle was given up.
#pragma once

#include "device/sysfs_cameras.h"

// An enumeration that opens a handle into slot n only. VQD_OK; -1 the camera is not there; -2 after "Error in openning
// device." with nothing opened. `unlisted` is empty for the first search of a re-open and goes from one to the next.
int FindCamera(int n, UnlistedCameras& unlisted);
