// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// How the tool ends, for scripts: its exit codes, and the failure that carries one with its message.
#pragma once

#include <stdexcept>
#include <string>

enum ExitCode {
    kDone = 0,
    kFailed = 1,
    kUsage = 2,
    kNoCamera = 3,
    kCameraLost = 5,
    kVerification = 6, // what was written reads back differently
    kCannotRun = 126,  // sim: the program is there but does not start
    kNoProgram = 127,  // sim: the program is not there
    kInterrupted = 130
};

struct Failure : std::runtime_error {
    Failure(ExitCode code, const std::string& message) : std::runtime_error(message), code(code) {}
    ExitCode code;
};
