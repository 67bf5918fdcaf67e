// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The files that one frame becomes.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "camera.h"
#include "pictures.h"

struct FrameFile {
    std::string name;
    std::function<Bytes(const Frame& frame)> encode;
};

// For eyes and programs; `cloud` is a cloud format, or empty.
std::vector<FrameFile> pictureFiles(const std::string& cloud);

// One frame of a series, from 1, exact values.
std::vector<std::string> seriesFormats();
std::vector<FrameFile> seriesFiles(const std::string& format, const std::string& cloud, int number);

void requireNewFiles(const std::filesystem::path& directory, const std::vector<FrameFile>& files);
void writeFiles(const std::filesystem::path& directory, const std::vector<FrameFile>& files, const Frame& frame);
