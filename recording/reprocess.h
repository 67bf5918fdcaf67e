// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Making the library process frames as it did when they were recorded. Whoever does that has a virtual camera open that
// sends these frames.
#pragma once

#include <mutex>

#include "recording/recording.h"
#include "sim/frame_source.h"

// The tables of the recorded camera, in the place of those that the library has loaded.
void useRecordedTables(const CameraFacts& camera);

// The parameters of the next frames, for camera n. Nothing is sent.
void useRecordedParameters(int n, const RecordedParameters& parameters);

// Sends the frame that it was given last, as often as it is asked.
class OneFrame : public sim::FrameSource
{
public:
    void give(const RecordedFrame& frame);

    sim::Replay replay(const sim::FrameRequest& request, std::span<uint8_t, sim::kFrameBytes> frame) override;
    void render(const sim::FrameRequest&, std::span<uint16_t, sim::kPixels>, std::span<uint16_t, sim::kPixels>) override
    {
    }

private:
    std::mutex m_mutex; // the camera asks on a thread of its own
    std::array<uint8_t, VQD_FRAME_BYTES> m_raw{};
};
