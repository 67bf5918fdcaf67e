// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Finding the camera of one device number again after its handle was given up.
#pragma once

#include "device/sysfs_cameras.h"

// Enumerates, but opens a handle into slot n only. Returns VQD_OK; VQD_NO_HANDLE if the camera is not there;
// VQD_NOT_OPEN, with nothing opened, after "Error in openning device." `unlisted` is empty for the first search of a
// re-open and is passed from each search to the next.
int FindCamera(int n, UnlistedCameras& unlisted);
