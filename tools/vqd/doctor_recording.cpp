// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A short recording of each camera for a report: whoever gets it can play the cameras.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "host/formatted.h"
#include "recording/recorder.h"
#include "worker/packing.h"

#include "doctor.h"
#include "interrupt.h"
#include "progress.h"
#include "record.h"

namespace
{

class TemporaryFolder
{
public:
    TemporaryFolder() : m_path((std::filesystem::temp_directory_path() / "vqd-report-XXXXXX").string())
    {
        if (mkdtemp(m_path.data()) == nullptr)
            throw Failure(kFailed, "no temporary folder can be made for the recording");
    }
    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

PackedFile packed(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    return {"recordings/" + file.filename().string(), {std::istreambuf_iterator(stream), {}}};
}

void warnOf(Findings& findings, const Failure& failure)
{
    findings.add(Level::warning, "recording", failure.what(), "vqd record --for 10s shows whether it can be done.");
}

// What there is of each camera; a recording that failed may have complete files.
std::vector<PackedFile> recordAll(Findings& findings, int seconds)
{
    if (const char* const missing = recordingMissing())
        throw Failure(kFailed, missing);
    const TemporaryFolder folder;
    RecordOptions options;
    options.folder = folder.path();
    options.seconds = seconds;
    options.request = {{"compact", Packing::missing() == nullptr}, {"images", false}};
    AllCameras cameras(workersFor(options));
    CameraRecordings recordings = recordingsOf(cameras, options);
    Progress progress("recording, second", seconds);
    record(cameras, recordings, [&](const Recorded& all) { progress.show(static_cast<int>(all.seconds)); });
    std::vector<PackedFile> files;
    for (const auto& recording : recordings) {
        for (const std::string& file : recording->all().files)
            files.push_back(packed(file));
        if (recording->failure())
            warnOf(findings, *recording->failure());
    }
    return files;
}

} // namespace

std::vector<PackedFile> recordForReport(Findings& findings, int seconds)
{
    try {
        std::vector<PackedFile> files = recordAll(findings, seconds);
        endIfInterrupted();
        findings.add(Level::ok, "recording",
                     formatted("%zu file%s for the report", files.size(), files.size() == 1 ? "" : "s"));
        return files;
    } catch (const Failure& failure) {
        endIfInterrupted();
        warnOf(findings, failure);
        return {};
    }
}
