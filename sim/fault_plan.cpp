// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Which transfer goes wrong, and how a spoilt transfer looks to the host.
#include "camera.h"

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

// What ends a transfer before the camera acts on it. The other kinds let the camera act: `shortened` and
// `badStartCode`.
std::optional<Outcome> Camera::spoil(Fault fault, TimeUs now)
{
    switch (fault.kind) {
    case Fault::Kind::stall:
        return Outcome{Status::stall};
    case Fault::Kind::timeout:
        return Outcome{Status::timeout, 0, false};
    case Fault::Kind::overflow:
        return Outcome{Status::overflow};
    case Fault::Kind::ioError:
        return Outcome{Status::ioError};
    case Fault::Kind::noMemory:
        return Outcome{Status::noMemory};
    case Fault::Kind::unplug:
        unplug(now, fault.backAfter);
        return Outcome{Status::noDevice};
    case Fault::Kind::silence:
        m_silentUntil = addTime(now, std::max<TimeUs>(fault.backAfter, 0));
        return Outcome{Status::timeout, 0, false};
    case Fault::Kind::shortened:
    case Fault::Kind::badStartCode:
        break;
    }
    return std::nullopt;
}

} // namespace sim
