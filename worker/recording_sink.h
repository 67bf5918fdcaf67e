// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A sink that keeps frames in files when a reader asks for it.
#pragma once

#include "host/listed_camera.h"
#include "worker/sink.h"

class RecordingSink : public Sink
{
public:
    // Of the camera's loop, before the camera grabs: what can only be read then.
    virtual void prepare(const ListedCamera& camera) = 0;

    // Of the camera's loop: carries out {"do": "record", ...}. Returns the state of the recording; fails with a
    // sentence.
    virtual Json start(const Json& request, const ListedCamera& camera) = 0;

    // Of any thread: takes no more frames, and writes those that it has. Returns the state, which goes on to change.
    virtual Json stop() = 0;

    // Ends the recording within a second or so, with what can be written by then.
    virtual void end() = 0;
};

// Fails when there is none.
inline RecordingSink& requireRecorder(RecordingSink* recorder)
{
    if (recorder == nullptr)
        throw Failure(kUsage,
                      "this worker has no folder for recordings; --recordings of vqd worker or vqd serve gives it one");
    return *recorder;
}
