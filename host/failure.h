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
    kNoAccess = 4,     // a camera is there, and this user may not open it
    kCameraLost = 5,   // or it does not answer any more
    kVerification = 6, // what was written reads back differently; eeprom diff: there are differences
    kCannotRun = 126,  // sim: the program is there but does not start
    kNoProgram = 127,  // sim: the program is not there
    kInterrupted = 130
};

struct Failure : std::runtime_error {
    Failure(ExitCode code, const std::string& message) : std::runtime_error(message), code(code) {}
    ExitCode code;
};
