// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd recording in a build without zlib or python3, which has no such command.
#include "commands.h"

void addRecording(CLI::App&, Run&) {}
