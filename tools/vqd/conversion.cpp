// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Mistakes in the settings are reported before a virtual camera is plugged in.
#include "conversion.h"

#include "host/formatted.h"

#include "interrupt.h"
#include "messages.h"
#include "options.h"
#include "progress.h"

static std::vector<Recording> openParts(const std::vector<std::string>& files)
{
    std::vector<Recording> parts;
    for (const std::string& file : files)
        parts.emplace_back(file, common.camera);
    return parts;
}

Conversion::Conversion(const ConversionOptions& options, const Settings& settings)
    : m_options(options), m_range(options.range), m_frames(openParts(options.files), [](const std::string& sentence) {
          warn("%s; a change of the settings in what is missing would go unnoticed", sentence.c_str());
      })
{
    requireOfHost(parseForFrames(options.settings), m_frames.camera());
    if (!m_frames.next(*m_recorded))
        throw Failure(kUsage, "the recording has no frame");
    m_camera.emplace(m_frames.camera(), *m_recorded);
    if (!m_recorded->parameters)
        warn("the settings of the first frames are lost, so they are made with those that the camera had stored");
    m_assignments = settings(m_camera->listed(), m_frames.camera());
}

void Conversion::run(const Take& take)
{
    Progress progress;
    RecordedTimes times;
    size_t inRange = 0;
    for (uint64_t number = 1;; ++number) {
        const double seconds = times.add(*m_recorded);
        if (m_range.isBehind(number, seconds))
            break;
        if (!m_range.isBefore(number, seconds) && inRange++ % static_cast<size_t>(m_options.every) == 0) {
            const bool changed = m_camera->process(*m_recorded, m_assignments, *m_frame);
            m_frame->info.nTimeStamp = static_cast<int64_t>(seconds * 1000);
            m_frame->info.nFrameCount = m_recorded->sequence;
            const bool goesOn = take(*m_recorded, *m_frame, changed);
            progress.show(formatted("frame %d", ++m_done));
            if (!goesOn)
                break;
        }
        endIfInterrupted();
        if (!m_frames.next(*m_recorded))
            break;
    }
    if (m_done == 0)
        throw Failure(kUsage, "the recording has no frame in the range " + m_options.range);
}
