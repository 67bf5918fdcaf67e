// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Copies what is whole of a damaged or cut file into a new one.
#pragma once

#include "recording/mcap_verify.h"

namespace mcap
{

struct Repaired {
    uint64_t messages = 0, chunks = 0, attachments = 0, metadata = 0; // that were copied
    std::vector<std::string> lost;                                    // sentences, the first kMostFaults of them
    uint64_t lostCount = 0;
};

// Into an empty file, which stays the caller's. Chunks stay what they are and keep their order. Fails when the new file
// cannot be written, or the old one is none that Writer makes: its channels have other encodings, or times that go
// back.
Repaired repair(Reader& from, int descriptor, const Step& step);

} // namespace mcap
