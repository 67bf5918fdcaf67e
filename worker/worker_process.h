// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A worker that a program starts for itself.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

// The same program again as "vqd worker" with these options. It ends when this process does, whichever way. Fails when
// it does not start.
pid_t startWorker(const std::vector<std::string>& options);
