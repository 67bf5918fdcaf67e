// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The messages of worker/wire.h, one after another.
#include "convert_stream.h"

#include <string>

#include "host/camera_stream.h"
#include "host/lens_json.h"
#include "host/parameters_json.h"
#include "recording/layout.h"

namespace
{

std::span<const uint8_t> bytesOf(const std::array<uint16_t, VQD_PIXELS>& plane)
{
    return {reinterpret_cast<const uint8_t*>(plane.data()), sizeof plane};
}

Json lensJson(const std::array<float, 4>& k, const std::array<float, 6>& d)
{
    return exactLensJson({{k[0], k[1], k[2], k[3]}, {d[0], d[1], d[2], d[3], d[4], d[5]}});
}

} // namespace

void FrameStream::add(const RecordedFrame& recorded, const DepthFrame& frame, bool changed)
{
    for (const std::string& event : recorded.events)
        send(messageOf(VQD_WIRE_EVENT, event));
    if (changed)
        sendParameters((recorded.flags & kFrameProfile) != 0);
    vqd_wire_frame header{};
    if (m_camera.known == Known::read) // zeros otherwise
        std::string(m_camera.szSerialNumber).copy(header.serial, sizeof header.serial - 1);
    header.session = recorded.session;
    header.sequence = recorded.sequence;
    header.real_time_ns = recorded.realTime;
    header.monotonic_time_ns = static_cast<int64_t>(recorded.monotonicTime);
    header.stamp_ms = frame.info.nTimeStamp;
    header.count = static_cast<uint64_t>(frame.info.nFrameCount);
    header.temperature = m_dTemperature[m_camera.nIndex];
    header.flags = recorded.flags & (kFrameReopened | kFrameProfile | kFrameClockStep);
    if (changesFrames(m_camera))
        header.flags |= VQD_WIRE_CORRECTED;
    header.dropped = recorded.dropped;
    header.width = VQD_WIDTH;
    header.height = VQD_HEIGHT;
    header.plane_bytes = 2 * VQD_PIXELS * sizeof(uint16_t);
    Bytes body;
    appendFrame(body, header, {bytesOf(frame.amplitude), bytesOf(frame.depth)});
    send(messageOf(VQD_WIRE_FRAME, std::make_shared<const Bytes>(std::move(body))));
}

// Reading the settings decodes the image into the variables from which the library makes frames.
void FrameStream::sendParameters(bool exactLens)
{
    const int n = m_camera.nIndex;
    const HostValues acting = hostValuesOf(n);
    Json lens = calibrationJson(m_camera);
    if (exactLens) {
        lens["depth"] = lensJson(acting.intrinsic, acting.distortion);
        lens["colour"] = lensJson(acting.colourIntrinsic, acting.colourDistortion);
    }
    const Json json = parametersJson(m_camera, lens, {stCamParam[n].image, VQD_IMAGE_BYTES});
    takeHostValues(n, acting);
    send(messageOf(VQD_WIRE_PARAMETERS, json.dump(-1, ' ', false, Json::error_handler_t::replace)));
}

void FrameStream::send(const Message& message)
{
    m_output.write({reinterpret_cast<const uint8_t*>(&message.prefix), sizeof message.prefix});
    m_output.write(*message.body);
    m_output.finish();
}
