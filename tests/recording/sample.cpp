// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Writes a recording of a camera that does not exist: a slope with noise at 30 frames a second, always the same bytes.
//   recording_sample FILE FRAMES [compact] [images] [uncompressed]
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <random>
#include <set>
#include <unistd.h>

#include "recording/camera_writer.h"

static CameraFacts camera()
{
    CameraFacts facts;
    facts.serial = "24061100000001";
    facts.product = "VQD-HT120";
    facts.vendor = "VQD";
    facts.usb = "03a4:871a";
    facts.hostCorrected = true;
    facts.eeprom.assign(128, 0x81);
    facts.orthogonal.assign(4096, 0x27);
    facts.fppn.assign(4800, -7);
    return facts;
}

static QueuedFrame frame(uint32_t number)
{
    QueuedFrame frame;
    frame.header.sequence = number;
    frame.header.monotonic_time_ns = number * 33'333'333;
    frame.raw.assign(VQD_FRAME_BYTES, 0x5A);
    std::mt19937 random(number);
    std::vector<uint16_t> planes(2 * VQD_PIXELS);
    for (size_t i = 0; i < planes.size(); ++i)
        planes[i] = static_cast<uint16_t>(i % VQD_WIDTH * 8 + random() % 8);
    std::memcpy(frame.raw.data() + 512, planes.data(), planes.size() * sizeof planes[0]);
    frame.amplitude.assign(planes.begin(), planes.begin() + VQD_PIXELS);
    frame.depth.assign(planes.begin() + VQD_PIXELS, planes.end());
    return frame;
}

int main(int argc, char** argv)
{
    if (argc < 3)
        return 2;
    const std::set<std::string> words(argv + 3, argv + argc);
    const int file = open(argv[1], O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (file < 0)
        return 1;
    constexpr uint64_t kBegin = 1'790'000'000'000'000'000;
    CameraWriter writer(file, camera(),
                        {.name = "shelf",
                         .compact = words.contains("compact"),
                         .images = words.contains("images"),
                         .compress = !words.contains("uncompressed") && mcap::ChunkPacking::missing() == nullptr},
                        kBegin);
    const auto at = [](uint32_t number) {
        const uint64_t log = kBegin + number * uint64_t{33'333'333};
        return RecordedTime{log, static_cast<int64_t>(log)};
    };
    RecordedParameters parameters{Bytes(VQD_IMAGE_BYTES, 7), {}};
    parameters.host.intrinsic = {204, 204, 160, 120};
    writer.parameters(parameters, at(0));
    const auto frames = static_cast<uint32_t>(atoi(argv[2]));
    for (uint32_t number = 1; number <= frames; ++number) {
        writer.frame(frame(number), at(number));
        if (number % 30 == 0)
            writer.diagnostics(msg::diagnostic_msgs::DiagnosticStatus::OK, "records", {{"frames", "30"}}, at(number));
    }
    writer.event("lost", Json{{"schema", "vqd.event/1"}, {"event", "lost"}}, at(frames));
    writer.finish();
    return close(file);
}
