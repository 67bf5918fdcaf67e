// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What one camera did, as the messages of a file: its channels, and what each frame, change and event puts into them.
#pragma once

#include <optional>

#include "messages.h"
#include "recording/camera_facts.h"
#include "recording/mcap_writer.h"
#include "recording/record_queue.h"
#include "worker/packing.h"

// When something happened: on the recording's time axis, and by the machine's clock.
struct RecordedTime {
    uint64_t log;
    int64_t real; // ns since 1970
};

class CameraWriter
{
public:
    struct Options {
        std::string name;     // of the topics, and of the coordinates
        bool compact = false; // frames packed, instead of as images
        bool images = false;  // what the library made of them, too
        bool compress = true; // chunks
        int part = 1;         // of a recording in several files
        uint64_t session = 0; // of the worker
    };

    // Of an empty file, which stays the caller's. Writes what is known of the camera. This and all that follows fail
    // when the file cannot be written; only finish() may then be called.
    CameraWriter(int descriptor, const CameraFacts& facts, Options options, uint64_t logTime);

    // To be called before the first frame.
    void parameters(const RecordedParameters& parameters, const RecordedTime& time);

    // Without the parameters that changed with it.
    void frame(const QueuedFrame& frame, const RecordedTime& time);
    void event(const std::string& name, const Json& json, const RecordedTime& time);

    // How the recording goes, for those who look at a recorded robot as a whole.
    void diagnostics(uint8_t level, const std::string& message, const mcap::Names& values, const RecordedTime& time);

    void finish() { m_file.finish(); }

    uint64_t bytes() const { return m_file.bytes(); } // by now
    // After finish(): frames of the file, and messages for which there was no room.
    uint64_t frames() const { return m_file.messages(m_options.compact ? m_channels.raw : m_channels.header); }
    uint64_t lostMessages() const { return m_file.lostMessages(); }

private:
    struct Channels {
        uint16_t raw, depthPlane, amplitudePlane, header, depthInfo, amplitudeInfo, depthImage, amplitudeImage,
            parameters, events, diagnostics;
    };

    void describe(const CameraFacts& facts, uint64_t logTime);
    void addChannels();
    // The plane of a host-corrected camera lies along the rays, and a lens beside it would invite to project it.
    bool hasDepthLens() const { return !m_hostCorrected || m_options.images; }
    msg::std_msgs::Header header(const RecordedTime& time) const;
    void mayEndChunk(const RecordedTime& time);
    template <typename Message> void write(uint16_t channel, const Message& message, const RecordedTime& time);
    void image(uint16_t channel, const char* encoding, std::span<const uint8_t> plane, const RecordedTime& time);
    void rawImages(const QueuedFrame& frame, const RecordedTime& time);
    void packedFrame(const QueuedFrame& frame, const RecordedTime& time);

    const Options m_options;
    const bool m_hostCorrected;
    const std::string m_hardware; // the camera, for diagnostics
    mcap::Writer m_file;
    Channels m_channels{};
    Packing m_packing;
    uint32_t m_sequence = 0; // of the present frame
    size_t m_open = 0;       // bytes of the open chunk
    uint64_t m_openSince = 0;

    // Kept from frame to frame, since fresh memory costs time.
    msg::CdrWriter m_cdr;
    msg::sensor_msgs::Image m_image;
    msg::sensor_msgs::CameraInfo m_lens;
    msg::vqd_msgs::RawFrame m_packed;
};
