// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// For builds without what recordings need.
#include "recording/recorder.h"

std::unique_ptr<RecordingSink> makeRecorder(RecorderOptions)
{
    return nullptr;
}

const char* recordingMissing()
{
    return "this build of vqd cannot record, because zlib (zlib1g-dev) or python3 was missing when it was built";
}
