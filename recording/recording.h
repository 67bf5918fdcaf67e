// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A recording as what a camera did: who it is, its tables, and its frames one by one with the parameters in force.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "VQD_API.h"

#include "recording/camera_facts.h"
#include "recording/host_values.h"
#include "recording/mcap_reader.h"

// A frame as the camera sent it, whatever form it has in the file.
struct RecordedFrame {
    alignas(8) std::array<uint8_t, VQD_FRAME_BYTES> raw{};
    uint64_t session = 0, sequence = 0, monotonicTime = 0; // as on the wire of a worker
    int64_t realTime = 0;                                  // ns since 1970
    uint32_t flags = 0;                                    // of RecordedFlag
    uint32_t dropped = 0;                                  // an estimate: frames that were lost before it
    std::vector<std::string> events;                       // since the frame before: JSON, schema vqd.event/1
    std::shared_ptr<const RecordedParameters> parameters;  // null in front of the first parameters
};

// One camera in one file.
class Recording
{
public:
    // `serial` names a camera where the file has several; empty: the only one. Fails when the file is no recording of
    // a camera, is of a later format, or has no such camera.
    explicit Recording(const std::filesystem::path& path, const std::string& serial = "");

    const std::filesystem::path& path() const { return m_path; }
    const CameraFacts& camera() const { return m_camera; }
    uint64_t session() const { return m_session; }         // of the worker that recorded it
    uint64_t begins() const;                               // the time of its first message
    const std::string& topics() const { return m_topics; } // how they begin: "/NAME"
    mcap::Reader& file() { return *m_file; }

private:
    Bytes attachment(const char* name, size_t bytes) const;
    void readCamera(const mcap::Names& names);

    std::filesystem::path m_path;
    std::unique_ptr<mcap::Reader> m_file;
    CameraFacts m_camera;
    std::string m_topics;
    uint64_t m_session = 0;
};

// The serial numbers of all cameras in a file; empty texts for those that have none.
std::vector<std::string> camerasIn(const std::filesystem::path& path);

// The frames of a recording in their order, through all its parts.
class RecordedFrames
{
public:
    // What cannot be read is left out, and `warn` is told so once a part.
    using Warn = std::function<void(const std::string& sentence)>;

    // Takes the parts in the order of their times. Fails when there is none, or they are of several cameras.
    RecordedFrames(std::vector<Recording> parts, Warn warn);
    ~RecordedFrames();
    RecordedFrames(RecordedFrames&&) noexcept;
    RecordedFrames& operator=(RecordedFrames&&) = delete;

    const CameraFacts& camera() const { return m_parts.front().camera(); }

    // The next frame. False at the end, and the call after that begins again.
    bool next(RecordedFrame& frame);

private:
    class PartReader;

    void warn(const Recording& part, const std::string& what);

    std::vector<Recording> m_parts;
    Warn m_warn;
    bool m_warned = false; // of the present part
    size_t m_part = 0;
    std::unique_ptr<PartReader> m_reader; // of the present part
};
