// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The files in which a frame is kept.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "host/point_cloud.h"
#include "host/whole_files.h"

struct FrameFile {
    std::string name;
    std::function<Bytes(const DepthFrame& frame)> encode;
};

// Pictures for people and exact values for programs; `cloud` is a cloud format, or empty.
std::vector<FrameFile> pictureFiles(const std::string& cloud, Axes axes);

// The exact values of the frames of a series.
struct SeriesFormat {
    std::string plane, cloud; // the cloud's may be empty
    Axes axes;
};
std::vector<std::string> seriesFormats();                                   // of planes
std::vector<FrameFile> seriesFiles(const SeriesFormat& format, int number); // from 1; the depth comes first

// How names of files of a series start, and how they may end.
struct SeriesName {
    std::string stem;
    std::vector<std::string> extensions;
};
std::vector<SeriesName> seriesNames();

void requireNewFiles(const std::filesystem::path& directory, const std::vector<FrameFile>& files);
void writeFiles(const std::filesystem::path& directory, const std::vector<FrameFile>& files, const DepthFrame& frame,
                OnDisk when = OnDisk::now);
