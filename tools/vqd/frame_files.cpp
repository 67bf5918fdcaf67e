// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// See frame_files.h.
#include "frame_files.h"

namespace
{

constexpr struct {
    const char* name;
    Bytes (*encode)(Plane plane);
} kFormats[] = {{"png", exactPicture}, {"pgm", pgmFile}, {"npy", npyFile}, {"raw", rawFile}};

FrameFile cloudFile(const std::string& stem, const std::string& cloud, Axes axes)
{
    return {stem + "." + cloud,
            [&format = cloudFormat(cloud), axes](const Frame& f) { return format.encode(cloudOf(f), axes); }};
}

} // namespace

std::vector<FrameFile> pictureFiles(const std::string& cloud, Axes axes)
{
    std::vector<FrameFile> files = {
        {"depth.png", [](const Frame& f) { return depthPicture(f.depth); }},
        {"amplitude.png", [](const Frame& f) { return amplitudePicture(f.amplitude); }},
        {"depth16.png", [](const Frame& f) { return exactPicture(f.depth); }},
        {"amplitude16.png", [](const Frame& f) { return exactPicture(f.amplitude); }},
    };
    if (!cloud.empty()) {
        files.push_back(cloudFile("points", cloud, axes));
        files.push_back({"points.png", [](const Frame& f) { return cloudPicture(cloudOf(f)); }});
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
    char suffix[16];
    snprintf(suffix, sizeof suffix, "-%06d", number);
    std::vector<FrameFile> files;
    for (const auto& [name, encode] : kFormats) {
        if (series.plane != name)
            continue;
        const std::string end = std::string(suffix) + "." + name;
        files.push_back({"depth" + end, [e = encode](const Frame& f) { return e(f.depth); }});
        files.push_back({"amplitude" + end, [e = encode](const Frame& f) { return e(f.amplitude); }});
    }
    if (!series.cloud.empty())
        files.push_back(cloudFile(std::string("points") + suffix, series.cloud, series.axes));
    return files;
}

std::vector<SeriesName> seriesNames()
{
    return {{"depth", seriesFormats()}, {"amplitude", seriesFormats()}, {"points", {"ply", "pcd"}}};
}

void requireNewFiles(const std::filesystem::path& directory, const std::vector<FrameFile>& files)
{
    for (const FrameFile& file : files)
        requireNewFile(directory / file.name);
}

void writeFiles(const std::filesystem::path& directory, const std::vector<FrameFile>& files, const Frame& frame,
                OnDisk when)
{
    for (const FrameFile& file : files)
        writeFile(directory / file.name, file.encode(frame), when);
}
