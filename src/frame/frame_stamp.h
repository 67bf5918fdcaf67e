// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Time stamp and counter of a delivered frame.
#pragma once

#include "VQD_API.h"

// Stamps and counts a frame of one stream and copies the stream's information to the caller.
// `started` is this stream's own; `startFlag` is shared by the streams of all cameras.
void StampFrame(StreamTimer& timer, int& startFlag, bool& started, FrameInfo& stream, FrameInfo* info);
