// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "recording/message_check.h"

#include <algorithm>
#include <utility>

#include "VQD_API.h"
#include "messages.h"

namespace
{

void require(bool holds, const char* fault)
{
    if (!holds)
        throw Failure(kUsage, fault);
}

template <typename T> T decoded(const mcap::Message& message)
{
    T decoded;
    msg::fromCdr(message.data, decoded);
    return decoded;
}

// The frame's number in its message; 0 when it is of another kind.
template <typename T> uint64_t decode(const mcap::Message& message)
{
    decoded<T>(message);
    return 0;
}

template <> uint64_t decode<msg::sensor_msgs::Image>(const mcap::Message& message)
{
    const auto image = decoded<msg::sensor_msgs::Image>(message);
    require(image.data.size() == uint64_t{image.step} * image.height, "the picture has another size than it claims");
    return 0;
}

template <> uint64_t decode<msg::vqd_msgs::FrameHeader>(const mcap::Message& message)
{
    return decoded<msg::vqd_msgs::FrameHeader>(message).sequence;
}

template <> uint64_t decode<msg::vqd_msgs::RawFrame>(const mcap::Message& message)
{
    const auto frame = decoded<msg::vqd_msgs::RawFrame>(message);
    require(frame.packed || frame.data.size() + frame.planes.size() == VQD_FRAME_BYTES,
            "the frame has another size than a camera sends");
    return frame.sequence;
}

const struct {
    const msg::MessageType& type;
    uint64_t (*decode)(const mcap::Message&);
} kTypes[] = {
    {msg::sensor_msgs::Image::kType, decode<msg::sensor_msgs::Image>},
    {msg::sensor_msgs::CameraInfo::kType, decode<msg::sensor_msgs::CameraInfo>},
    {msg::vqd_msgs::FrameHeader::kType, decode<msg::vqd_msgs::FrameHeader>},
    {msg::vqd_msgs::RawFrame::kType, decode<msg::vqd_msgs::RawFrame>},
    {msg::vqd_msgs::Parameters::kType, decode<msg::vqd_msgs::Parameters>},
    {msg::vqd_msgs::Event::kType, decode<msg::vqd_msgs::Event>},
    {msg::diagnostic_msgs::DiagnosticArray::kType, decode<msg::diagnostic_msgs::DiagnosticArray>},
};

} // namespace

void MessageCheck::look(const mcap::Channel& channel, const mcap::Message& message)
{
    const uint64_t before = std::exchange(m_time, message.logTime);
    require(message.logTime >= before, "the time goes back");
    const auto known = std::ranges::find_if(kTypes, [&](const auto& row) { return channel.type == row.type.name; });
    if (known == std::end(kTypes))
        return;
    const uint64_t sequence = known->decode(message);
    if (sequence == 0)
        return;
    uint64_t& last = m_sequences[channel.topic];
    require(sequence > last, "the number of the frame does not grow");
    last = sequence;
}
