// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Names and encodings, for the last frame as pictures and for each frame of a series.
#include "frame_files.h"

#include "host/formatted.h"

#include "cloud_picture.h"
#include "options.h"
#include "pictures.h"

namespace
{

constexpr struct {
    const char* name;
    Bytes (*encode)(Plane plane);
} kFormats[] = {{"png", exactPicture}, {"pgm", pgmFile}, {"npy", npyFile}, {"raw", rawFile}, {"csv", csvFile}};

FrameFile cloudFile(const std::string& stem, const std::string& cloud, Axes axes)
{
    return {stem + "." + cloud,
            [&format = cloudFormat(cloud), axes](const DepthFrame& f) { return format.encode(cloudOf(f), axes); }};
}

} // namespace

std::vector<FrameFile> pictureFiles(const std::string& cloud, Axes axes)
{
    std::vector<FrameFile> files = {
        {"depth.png", [](const DepthFrame& f) { return depthPicture(f.depth); }},
        {"amplitude.png", [](const DepthFrame& f) { return amplitudePicture(f.amplitude); }},
        {"depth16.png", [](const DepthFrame& f) { return exactPicture(f.depth); }},
        {"amplitude16.png", [](const DepthFrame& f) { return exactPicture(f.amplitude); }},
    };
    if (!cloud.empty()) {
        files.push_back(cloudFile("points", cloud, axes));
        files.push_back({"points.png", [](const DepthFrame& f) { return cloudPicture(cloudOf(f)); }});
    }
    return files;
}

std::vector<std::string> seriesFormats()
{
    std::vector<std::string> names;
    for (const auto& format : kFormats)
        names.push_back(format.name);
    return names;
}

std::vector<FrameFile> seriesFiles(const SeriesFormat& series, int number)
{
    const std::string suffix = formatted("-%06d", number);
    std::vector<FrameFile> files;
    for (const auto& [name, encode] : kFormats) {
        if (series.plane != name)
            continue;
        const std::string end = suffix + "." + name;
        files.push_back({"depth" + end, [e = encode](const DepthFrame& f) { return e(f.depth); }});
        files.push_back({"amplitude" + end, [e = encode](const DepthFrame& f) { return e(f.amplitude); }});
    }
    if (!series.cloud.empty())
        files.push_back(cloudFile("points" + suffix, series.cloud, series.axes));
    return files;
}

std::vector<SeriesName> seriesNames()
{
    return {{"depth", seriesFormats()}, {"amplitude", seriesFormats()}, {"points", cloudFormatNames()}};
}

void requireNewFiles(const std::filesystem::path& directory, const std::vector<FrameFile>& files)
{
    for (const FrameFile& file : files)
        requireNewFile(directory / file.name, existing());
}

void writeFiles(const std::filesystem::path& directory, const std::vector<FrameFile>& files, const DepthFrame& frame,
                OnDisk when)
{
    for (const FrameFile& file : files)
        writeFile(directory / file.name, file.encode(frame), existing(), when);
}
