// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The recorder of a worker.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>

#include "worker/recording_sink.h"

struct RecorderOptions {
    std::filesystem::path folder; // below which all of its files are
    uint64_t keepFree;            // bytes of its disk that are not its own; a recording ends there
    uint64_t session;             // of the worker
    // Called with the state of the recording whenever there is news, from any thread.
    std::function<void(const Json& state)> tell;
    // Whether the process is to end within a second or two; asked from any thread.
    std::function<bool()> ends;
};

// Null when this build cannot record.
std::unique_ptr<RecordingSink> makeRecorder(RecorderOptions options);

// Why this build cannot, as a sentence; null when it can.
const char* recordingMissing();
