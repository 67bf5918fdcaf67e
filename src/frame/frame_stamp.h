// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Time stamp and counter of a delivered frame.
#pragma once

#include "VQD_API.h"

// Stamps and counts a frame of one stream and copies the stream's information to the caller.
void StampFrame(StreamTimer& timer, int& startFlag, FrameInfo& stream, FrameInfo* info);
