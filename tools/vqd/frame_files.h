// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The files that one frame becomes.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "camera.h"
#include "output.h"
#include "pictures.h"
#include "host/point_cloud.h"

struct FrameFile {
    std::string name;
    std::function<Bytes(const Frame& frame)> encode;
};

// For eyes and programs; `cloud` is a cloud format, or empty.
std::vector<FrameFile> pictureFiles(const std::string& cloud, Axes axes);

// Frames of a series, exact values.
struct SeriesFormat {
    std::string plane, cloud; // the cloud's may be empty
    Axes axes;
};
std::vector<std::string> seriesFormats();                                   // of planes
std::vector<FrameFile> seriesFiles(const SeriesFormat& format, int number); // from 1; the depth comes first

// What the names of a series start with, and how they may end.
struct SeriesName {
    std::string stem;
    std::vector<std::string> extensions;
};
std::vector<SeriesName> seriesNames();

void requireNewFiles(const std::filesystem::path& directory, const std::vector<FrameFile>& files);
void writeFiles(const std::filesystem::path& directory, const std::vector<FrameFile>& files, const Frame& frame,
                OnDisk when = OnDisk::now);
