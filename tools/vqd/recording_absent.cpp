// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A build without zlib or python3, which has no command for recordings and only says so.
#include "host/failure.h"
#include "recording/recorder.h"

#include "commands.h"
#include "quality.h"
#include "sim_cameras.h"

std::vector<Plugged> playedCameras(const SimCameras&)
{
    throw Failure(kFailed, recordingMissing());
}

QualitySource measureRecording(const QualityOptions&)
{
    throw Failure(kFailed, recordingMissing());
}

void addRecording(CLI::App&, Run&) {}

void addConvert(CLI::App&, Run&, const Invocation&) {}
