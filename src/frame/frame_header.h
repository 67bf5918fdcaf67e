// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The header of a raw frame.
#pragma once

// Whether the bytes begin as a frame does.
bool HasStartCode(const unsigned char* raw);

// Keeps the temperature and the versions of a frame of camera n.
void TakeHeader(int n, const unsigned char* raw);
