// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What grabbing from one camera and from all of them have in common.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "host/arrivals.h"
#include "host/depth_frame.h"
#include "host/json.h"
#include "host/point_cloud.h"

struct GrabOptions {
    int frames = 1;
    std::string directory = ".";
    std::vector<std::string> settings;
    std::string format, cloud;
    Axes axes = Axes::optical;
};

// Waits for a frame and judges when it came.
using ReadFrame = std::function<Arrival(DepthFrame& frame)>;

// Fails when the directory cannot take these files.
void requireRoomForFiles(const GrabOptions& options);

// Reads all frames and writes the files. The last frame stays in `frame`; `done` is told how many there are.
void grabFrames(const GrabOptions& options, const ReadFrame& read, DepthFrame& frame,
                const std::function<void(int)>& done);

// What a command says of a camera when all is done.
struct GrabReport {
    Json camera;                    // as vqd list shows it
    Json temperature, logicVersion; // as vqd get shows them
    Arrivals arrivals;
    unsigned depth; // at the centre, in mm; 0 when it is invalid
};
unsigned centreDepth(const DepthFrame& frame);
Json reportJson(const GrabOptions& options, const GrabReport& report);
std::string reportText(const GrabOptions& options, const GrabReport& report);

// The same from all cameras, each into a directory of its own.
int grabAll(const GrabOptions& options);
