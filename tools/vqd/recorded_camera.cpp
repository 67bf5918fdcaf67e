// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A camera at a virtual bus of this process, and the library's variables as they were.
#include "recorded_camera.h"

#include "recording/player.h"

#include "settings_apply.h"

RecordedCamera::RecordedCamera(const CameraFacts& facts, const RecordedFrame& first)
{
    m_source->give(first);
    Plugged camera{playedConfig(facts), playedEeprom(facts, first.parameters.get()), playedTables(facts)};
    camera.config.source = m_source;
    camera.config.framesPerSecond = 0;
    m_bus = sim::makeMockBus();
    std::vector<Plugged> cameras;
    cameras.push_back(std::move(camera));
    plugCameras(*m_bus, std::move(cameras));
    m_cameras.emplace();
    m_stream.emplace(m_cameras->choose());
    useRecordedTables(facts);
}

bool RecordedCamera::process(const RecordedFrame& recorded, std::span<const Assignment> assignments, DepthFrame& frame)
{
    m_source->give(recorded);
    // Each part of a recording repeats them.
    const bool isNew = recorded.parameters && (!m_parameters || *recorded.parameters != *m_parameters);
    const bool changed = std::exchange(m_isFirst, false) || isNew;
    if (isNew) {
        useRecordedParameters(listed().nIndex, *recorded.parameters);
        m_parameters = recorded.parameters;
    }
    if (changed)
        applySettings(listed(), assignments);
    m_stream->read(frame);
    return changed;
}

void requireOfHost(std::span<const Assignment> assignments, const CameraFacts& facts)
{
    constexpr std::string_view kOfHostCorrected[] = {"fppn", "orthogonal", "remove-edge", "depth-range"};
    for (const Assignment& assignment : assignments) {
        const std::string_view name = assignment.setting->name;
        const bool corrects = facts.hostCorrected && std::ranges::count(kOfHostCorrected, name) > 0;
        if (name != "undistortion" && !corrects)
            throw Failure(kUsage, std::string(name) + " acts in the camera of this recording, before it sends a frame; "
                                                      "a recorded frame cannot be changed by it");
    }
}
