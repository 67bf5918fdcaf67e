// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Judges a file as a whole: all CRCs, and that indexes and summary say what the data holds, since other readers trust
// them where ours may not look.
#pragma once

#include <functional>

#include "recording/mcap_reader.h"

namespace mcap
{

struct Verdict {
    std::vector<std::string> faults; // sentences, the first kMostFaults of them
    uint64_t faultCount = 0;
    uint64_t messages = 0, chunks = 0; // that could be read
};

// Looks at a message of a whole chunk, and fails when something is wrong with it.
using Judge = std::function<void(const Channel& channel, const Message& message)>;

// Is told before each record at which byte it begins. What it throws ends the work.
using Step = std::function<void(uint64_t offset)>;

Verdict verify(Reader& reader, const Judge& judge, const Step& step);

} // namespace mcap
