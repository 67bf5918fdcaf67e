// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The frames of a recording one by one, made anew.
#pragma once

#include <functional>

#include "convert_range.h"
#include "recorded_camera.h"

struct ConversionOptions {
    std::vector<std::string> files, settings; // all parts of a recording; "KEY=VALUE"
    std::string range;
    int every = 1;
};

// The process has the preload of the virtual bus.
class Conversion
{
public:
    // The settings that are wanted instead of the recorded ones, and that act on a recorded frame.
    using Settings = std::function<std::vector<Assignment>(const ListedCamera& camera, const CameraFacts& facts)>;

    // Takes a processed frame, which is the first with other parameters where `changed` says so, and the time since
    // the first of the recording in its stamp. False: no more are wanted.
    using Take = std::function<bool(const RecordedFrame& recorded, const DepthFrame& frame, bool changed)>;

    Conversion(const ConversionOptions& options, const Settings& settings);

    const CameraFacts& facts() const { return m_frames.camera(); }
    const ListedCamera& listed() const { return m_camera->listed(); }
    int done() const { return m_done; }

    // Fails when no frame is in the range.
    void run(const Take& take);

private:
    const ConversionOptions& m_options;
    const Range m_range;
    RecordedFrames m_frames;
    std::vector<Assignment> m_assignments;
    const std::unique_ptr<RecordedFrame> m_recorded = std::make_unique<RecordedFrame>();
    const std::unique_ptr<DepthFrame> m_frame = std::make_unique<DepthFrame>();
    std::optional<RecordedCamera> m_camera;
    int m_done = 0;
};
