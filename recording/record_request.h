// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// How somebody wants a recording: {"do": "record", "name": "left", ...}.
#pragma once

#include <optional>
#include <string>

#include "host/json.h"

inline constexpr double kLeastSplitBytes = 1e6, kLeastSplitSeconds = 1; // of a file

struct RecordRequest {
    std::string name;           // of the file, see requireRecordingName()
    std::string topics;         // their name; empty for the usual one
    int part = 1;               // of the first file
    bool compact = false;       // frames packed
    std::optional<bool> images; // what the library makes of them, too; by default for host-corrected models
    bool compress = true;
    uint64_t frames = 0;     // after which it ends; 0 for no such limit
    double seconds = 0;      // the same
    uint64_t splitBytes = 0; // after which the next file begins; 0 for one file
    double splitSeconds = 0; // the same
};

// Fails with a usage error for members that are none, or are not what they should be.
RecordRequest recordRequestFrom(const Json& request);
