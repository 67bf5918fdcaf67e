// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A build without recordings, which only says so.
#include "host/failure.h"
#include "recording/recorder.h"

#include "commands.h"
#include "sim_cameras.h"

std::vector<Plugged> playedCameras(const SimCameras&)
{
    throw Failure(kFailed, recordingMissing());
}

void addConvert(CLI::App&, Run&, const Invocation&) {}
