// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The cameras that this process has to itself.
#pragma once

#include "host/listed_camera.h"

// Another program has the camera; the message says which, if this user may know.
struct CameraHeld : Failure {
    using Failure::Failure;
};

// Claims the camera, and locks it until the end of the process. The first only tells whether that worked; the second
// fails and names who has the camera open. A camera that another program has is not touched, since a failing open would
// stop that program's frames.
bool tryClaim(const ListedCamera& camera);
void requireClaim(const ListedCamera& camera);

// Closes the cameras that were claimed, and no other: the library stops the grabbing of each camera that it closes,
// even where another program grabs. Cameras that were only listed are let go by the end of the process.
void closeClaimed();
