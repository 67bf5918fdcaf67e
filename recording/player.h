// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A recording as the inside of a virtual camera: what it sends, and what its memory holds.
#pragma once

#include <map>
#include <optional>
#include <vector>

#include "recording/recording.h"
#include "sim/camera.h"

// A camera that is as the recorded one was when the recording began. It starts with the settings of the first frame,
// saved or not, so that a program which sets nothing gets what was recorded.
sim::Config playedConfig(const CameraFacts& camera);
// Where those are lost (null), with what its EEPROM held. Fails when that is not known either.
sim::Eeprom playedEeprom(const CameraFacts& camera, const RecordedParameters* first);

// The tables that the library can read, by region. The recorded camera has no others.
std::map<uint16_t, std::vector<uint8_t>> playedTables(const CameraFacts& camera);

// Sends the frames one after another. Once the last one was sent, the camera is gone.
class Player : public sim::FrameSource
{
public:
    struct Options {
        bool recordedPace = true; // else the camera's own rate counts
        bool loop = false;        // begins again at the end
    };

    // Fails when there is no frame.
    Player(RecordedFrames frames, Options options);

    const CameraFacts& camera() const { return m_frames.camera(); }
    const RecordedParameters* firstParameters() const { return m_firstParameters.get(); } // null: they are lost

    sim::Replay replay(const sim::FrameRequest& request, std::span<uint8_t, sim::kFrameBytes> frame) override;
    std::optional<sim::TimeUs> interval() const override;
    void render(const sim::FrameRequest&, std::span<uint16_t, sim::kPixels>,
                std::span<uint16_t, sim::kPixels>) override;

private:
    void readAhead();

    RecordedFrames m_frames;
    const Options m_options;
    std::shared_ptr<const RecordedParameters> m_firstParameters;
    RecordedFrame m_next; // if m_hasNext
    bool m_hasNext = false;
    sim::TimeUs m_interval;
};
