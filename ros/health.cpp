// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The report is made of what came with the frames, so the worker is not asked while all is well.
#include "ros/health.h"

#include "host/formatted.h"

void Health::add(const Frame& frame)
{
    ++m_frames;
    ++m_recent.frames;
    m_lost += frame.lost;
    m_recent.lost += frame.lost;
    m_reopens += frame.reopened ? 1 : 0;
    m_temperature = frame.temperature;
}

msg::diagnostic_msgs::DiagnosticStatus Health::report(double seconds, const std::string& trouble)
{
    using Status = msg::diagnostic_msgs::DiagnosticStatus;
    const double rate = static_cast<double>(m_recent.frames) / seconds;
    Status status;
    status.name = "vqd: " + name;
    status.hardware_id = serial;
    if (!trouble.empty()) {
        status.level = Status::ERROR;
        status.message = trouble;
    } else if (m_recent.lost > 0) {
        status.level = Status::WARN;
        status.message = std::to_string(m_recent.lost) + (m_recent.lost == 1 ? " frame was lost" : " frames were lost");
    } else {
        status.level = Status::OK;
        status.message = "streaming";
    }
    status.values = {{"frames per second", formatted("%.1f", rate)},
                     {"frames", std::to_string(m_frames)},
                     {"lost frames", std::to_string(m_lost)},
                     {"re-opens", std::to_string(m_reopens)},
                     {"temperature", m_frames > 0 ? formatted("%.2f", m_temperature) : ""},
                     {"serial number", serial},
                     {"messages that DDS did not take", std::to_string(notTaken)}};
    m_recent = {};
    return status;
}
