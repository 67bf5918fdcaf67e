// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Which transfers of a camera go wrong, and how.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "frame_clock.h"

namespace sim
{

enum class Channel { control, bulkOut, bulkIn, any };

// One line of a fault plan: the nth transfer that matches, and the `times` - 1 after it, go wrong.
struct Fault {
    enum class Kind {
        stall,        // the camera refuses the transfer
        timeout,      // the transfer is never answered: it moves nothing and takes the caller's whole time-out
        overflow,     // the camera sends more than was asked for
        ioError,      // the line is broken for this transfer
        noMemory,     // the host has no memory for the transfer, so it is refused before it reaches the bus
        shortened,    // the transfer succeeds, but moves only `bytes` bytes
        badStartCode, // the frame's first byte is wrong; only on bulkIn
        unplug,       // the camera vanishes; it is back after `backAfter` on a new address
        silence       // the camera answers nothing for `backAfter`: a frame comes late, all else times out
    };
    Kind kind = Kind::stall;
    Channel channel = Channel::control;
    int request = -1;          // on control: this bRequest only; -1 is any vendor request; standard ones never count
    unsigned nth = 1;          // 1 is the first matching transfer after the line joined the plan
    unsigned times = 1;        // how many in a row; 0 for ever
    size_t bytes = 0;          // shortened: how many bytes arrive
    TimeUs backAfter = kNever; // unplug, silence: kNever stays away
    uint64_t afterFrames = 0;  // transfers match only once the camera has sent so many frames
};

// Counts transfers against its lines. A line counts each transfer that matches it, even one that another line spoils.
class FaultPlan
{
public:
    void add(const Fault& fault);

    // A transfer starts: the fault that it meets, if any. Only the control channel looks at `request`.
    std::optional<Fault> meet(uint64_t framesSent, Channel channel, int request = -1);

private:
    struct Line {
        Fault fault;
        uint64_t seen = 0;
    };
    std::vector<Line> m_lines;
};

} // namespace sim
