// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Time stamp and counter of a delivered frame.
#include "frame/frame_stamp.h"

#include "device/base/clock.h"

// Every camera's stream counts from its own first frame, which costs a second reading of the clock.
void StampFrame(StreamTimer& timer, int& startFlag, bool& started, FrameInfo& stream, FrameInfo* info)
{
    timer.latest = NowMs();
    if (startFlag == 0 || !started) {
        startFlag = 1;
        started = true;
        timer.start = NowMs();
    }
    stream.nTimeStamp = timer.latest - timer.start;
    stream.nFrameCount += 1;
    *info = stream;
}
