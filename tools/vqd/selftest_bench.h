// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The camera under test: as it was before, what it is doing, and the way back.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "host/depth_frame.h"
#include "host/library_lines.h"
#include "host/listed_camera.h"

using HostImage = std::array<unsigned char, VQD_IMAGE_BYTES>;
HostImage hostImage(int n);

// Puts back what was changed, at its end at the latest.
struct Bench {
    Bench(const ListedCamera& camera, LibraryLines& lines, int frames);
    ~Bench() { putBack(); }
    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;

    // Restores the host's image, what the library derives from it, and the camera's working image. The EEPROM is only
    // read.
    bool putBack();

    // The settings as texts, in the order of the table.
    std::vector<std::string> settings() const;

    // One read of the library. False when the camera is lost.
    bool read(DepthFrame& into);

    const ListedCamera& camera;
    const int n;
    LibraryLines& lines;
    const int frameCount; // to read for the checks on frames
    const HostImage before;
    const std::vector<std::string> settingsBefore;
    bool claimed = false, grabbing = false, changed = false, lost = false;
    DepthFrame frame; // the latest

    // What the run of frames showed.
    double rate = 0;
    bool ordered = true;
    int frames = 0, badFrames = 0, failedTransfers = 0;
};
