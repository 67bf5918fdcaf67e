// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Finding the camera of one device number again after its handle was given up.
#pragma once

// An enumeration that opens a handle into slot n only. VQD_OK; -1 the camera is not there; -2 after "Error in openning
// device." with nothing opened.
int FindCamera(int n);
