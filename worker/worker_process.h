// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A worker, or another program that reads from one, which a program starts for itself.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

// The same program again as "vqd worker" with these options. It ends when this process does, whichever way. Fails when
// it does not start.
pid_t startWorker(const std::vector<std::string>& options);

// The same with another program, and all words of its command line.
pid_t startProcess(const std::string& program, std::vector<std::string> words);
