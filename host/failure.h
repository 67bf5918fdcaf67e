// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What goes wrong outside the library: a sentence for people, and a code that tells programs the kind. Nothing in host/
// throws anything else of its own, prints, or ends the process.
#pragma once

#include <stdexcept>
#include <string>

// vqd ends with these, so scripts rely on the numbers.
enum ExitCode {
    kDone = 0,
    kFailed = 1,
    kUsage = 2, // a wrong command line, or a file that does not hold what it should
    kNoCamera = 3,
    kNoAccess = 4,     // a camera is attached, but this user may not open it
    kCameraLost = 5,   // or it no longer answers
    kVerification = 6, // what was written reads back differently; eeprom diff: there are differences
    kNotMet = 7,       // quality: what was required of a camera does not hold
    kCannotRun = 126,  // sim: the program exists but does not start
    kNoProgram = 127,  // sim: the program does not exist
    kInterrupted = 130
};

struct Failure : std::runtime_error {
    Failure(ExitCode code, const std::string& message) : std::runtime_error(message), code(code) {}
    ExitCode code;
};
