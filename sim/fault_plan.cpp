// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Counting the transfers that match each line of a plan.
#include "fault_plan.h"

#include <algorithm>

namespace sim
{

void FaultPlan::add(const Fault& fault)
{
    m_lines.push_back({fault});
}

std::optional<Fault> FaultPlan::meet(uint64_t framesSent, Channel channel, int request)
{
    std::optional<Fault> met;
    for (Line& line : m_lines) {
        const Fault& fault = line.fault;
        if (framesSent < fault.afterFrames || (fault.channel != channel && fault.channel != Channel::any))
            continue;
        if (fault.channel == Channel::control && fault.request >= 0 && fault.request != request)
            continue;
        const uint64_t first = std::max(fault.nth, 1u);
        line.seen++;
        const bool due = line.seen >= first && (fault.times == 0 || line.seen - first < fault.times);
        if (due && !met)
            met = fault;
    }
    return met;
}

} // namespace sim
