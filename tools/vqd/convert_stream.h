// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Processed frames as a worker sends them, in a pipe instead of a socket.
#pragma once

#include "host/depth_frame.h"
#include "host/listed_camera.h"
#include "recording/recording.h"
#include "worker/messages.h"

#include "output.h"

class FrameStream
{
public:
    FrameStream(Output& output, const ListedCamera& camera) : m_output(output), m_camera(camera) {}

    // Events, parameters if they changed, and the frame. Fails when nobody reads.
    void add(const RecordedFrame& recorded, const DepthFrame& frame, bool changed);

private:
    void sendParameters(bool exactLens);
    void send(const Message& message);

    Output& m_output;
    const ListedCamera& m_camera;
};
