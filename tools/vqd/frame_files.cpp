// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// See frame_files.h.
#include "frame_files.h"

#include "point_cloud.h"

namespace
{

constexpr struct {
    const char* name;
    Bytes (*encode)(Plane plane);
} kFormats[] = {{"png", exactPicture}, {"pgm", pgmFile}, {"npy", npyFile}, {"raw", rawFile}};

FrameFile cloudFile(const std::string& stem, const std::string& cloud)
{
    return {stem + "." + cloud, [&format = cloudFormat(cloud)](const Frame& f) { return format.encode(cloudOf(f)); }};
}

} // namespace

std::vector<FrameFile> pictureFiles(const std::string& cloud)
{
    std::vector<FrameFile> files = {
        {"depth.png", [](const Frame& f) { return depthPicture(f.depth); }},
        {"amplitude.png", [](const Frame& f) { return amplitudePicture(f.amplitude); }},
        {"depth16.png", [](const Frame& f) { return exactPicture(f.depth); }},
        {"amplitude16.png", [](const Frame& f) { return exactPicture(f.amplitude); }},
    };
    if (!cloud.empty()) {
        files.push_back(cloudFile("points", cloud));
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

std::vector<FrameFile> seriesFiles(const std::string& format, const std::string& cloud, int number)
{
    char suffix[16];
    snprintf(suffix, sizeof suffix, "-%06d", number);
    std::vector<FrameFile> files;
    for (const auto& [name, encode] : kFormats) {
        if (format != name)
            continue;
        files.push_back({"depth" + (suffix + ("." + format)), [e = encode](const Frame& f) { return e(f.depth); }});
        files.push_back(
            {"amplitude" + (suffix + ("." + format)), [e = encode](const Frame& f) { return e(f.amplitude); }});
    }
    if (!cloud.empty())
        files.push_back(cloudFile(std::string("points") + suffix, cloud));
    return files;
}

void requireNewFiles(const std::filesystem::path& directory, const std::vector<FrameFile>& files)
{
    for (const FrameFile& file : files)
        requireNewFile(directory / file.name);
}

void writeFiles(const std::filesystem::path& directory, const std::vector<FrameFile>& files, const Frame& frame)
{
    for (const FrameFile& file : files)
        writeFile(directory / file.name, file.encode(frame));
}
