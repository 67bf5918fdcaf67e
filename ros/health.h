// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// How a camera is, for /diagnostics.
#pragma once

#include <string>

#include "messages.h"

class Health
{
public:
    struct Frame {
        double temperature;
        uint64_t lost; // before it: not read by the worker, or not taken from it in time
        bool reopened;
    };
    void add(const Frame& frame);

    // For the time since the last report, and the counts of the whole run. `trouble` is why there are no images; empty
    // when they go out.
    msg::diagnostic_msgs::DiagnosticStatus report(double seconds, const std::string& trouble);

    bool hasFrames() const { return m_recent.frames > 0; } // since the last report

    std::string name, serial; // of the camera
    uint64_t notTaken = 0;    // messages that DDS did not take

private:
    struct Recent {
        uint64_t frames = 0, lost = 0;
    } m_recent;
    uint64_t m_frames = 0, m_lost = 0, m_reopens = 0;
    double m_temperature = 0;
};
