// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// For builds without what recordings need.
#include "recording/recorder.h"

std::unique_ptr<RecordingSink> makeRecorder(RecorderOptions)
{
    throw Failure(kUsage,
                  "this build of vqd cannot record: zlib (zlib1g-dev) or python3 was missing when it was built");
}
