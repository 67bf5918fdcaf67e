// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A worker, or another program that reads from one, which a program starts for itself.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

// The words of "vqd worker" with these options, for the same program again.
inline constexpr char kThisProgram[] = "/proc/self/exe";
std::vector<std::string> workerWords(const std::vector<std::string>& options);

// A process with all words of its command line. It ends when this process does, whichever way. Fails when it does not
// start.
pid_t startProcess(const std::string& program, std::vector<std::string> words);
