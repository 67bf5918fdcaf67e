// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Frames of a recording through the library, as if the recorded camera sent them.
#pragma once

#include "host/assignments.h"
#include "host/depth_frame.h"
#include "recording/reprocess.h"

#include "cameras.h"
#include "sim_cameras.h"

// A virtual camera that is claimed and grabs. The process has the preload of the virtual bus.
class RecordedCamera
{
public:
    // `first` is a frame of that camera. Where its parameters are lost, the camera is as its EEPROM says.
    RecordedCamera(const CameraFacts& facts, const RecordedFrame& first);

    const ListedCamera& listed() const { return m_cameras->all().front(); }

    // Makes the images as they were made then, but for what the assignments change. Returns whether this frame is the
    // first with other parameters. Where they are lost, those before still hold.
    bool process(const RecordedFrame& recorded, std::span<const Assignment> assignments, DepthFrame& frame);

private:
    const std::shared_ptr<OneFrame> m_source = std::make_shared<OneFrame>();
    std::unique_ptr<sim::Bus> m_bus; // outlives its clients
    std::optional<Cameras> m_cameras;
    std::optional<Stream> m_stream;
    std::shared_ptr<const RecordedParameters> m_parameters; // in force
    bool m_isFirst = true;                                  // the next frame
};

// What acts on a recorded frame: a camera's own settings have done so already. Fails with a usage error for others.
void requireOfHost(std::span<const Assignment> assignments, const CameraFacts& facts);
