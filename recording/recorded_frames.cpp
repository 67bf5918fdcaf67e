// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Frames put together from the messages of a file. A frame is one message or three, whichever way it was recorded.
#include <algorithm>
#include <cstring>
#include <functional>
#include <utility>

#include "messages.h"

#include "host/documents.h"
#include "recording/layout.h"
#include "recording/recording.h"
#include "sim/wire.h"
#include "worker/packing.h"

namespace
{

constexpr size_t kHeaderBytes = 512, kPlaneBytes = VQD_PIXELS * sizeof(uint16_t);
static_assert(kHeaderBytes + 2 * kPlaneBytes == VQD_FRAME_BYTES);

enum Part : unsigned { kHeaderPart = 1, kAmplitudePart = 2, kDepthPart = 4, kWhole = 7 };

int64_t nanoseconds(const msg::builtin_interfaces::Time& time)
{
    return time.sec * int64_t{1'000'000'000} + time.nanosec;
}

std::span<uint16_t> planeOf(RecordedFrame& frame, size_t plane)
{
    auto* const first = reinterpret_cast<uint16_t*>(frame.raw.data() + kHeaderBytes + plane * kPlaneBytes);
    return {first, VQD_PIXELS};
}

template <typename Message> void takeHeader(const Message& message, RecordedFrame& frame)
{
    std::ranges::copy(message.data, frame.raw.begin());
    frame.sequence = message.sequence;
    frame.monotonicTime = message.monotonic_time_ns;
    frame.realTime = nanoseconds(message.header.stamp);
    frame.flags = message.flags;
    frame.dropped = message.dropped;
}

// The library would take the camera for broken, and open it again.
void requireStartCode(const RecordedFrame& frame)
{
    if (frame.raw[sim::kStart0] != sim::kStartCode0 || frame.raw[sim::kStart1] != sim::kStartCode1)
        throw Failure(kUsage, "a frame does not begin as frames do");
}

} // namespace

class RecordedFrames::PartReader
{
public:
    explicit PartReader(Recording& part) : m_cursor(part.file()), m_session(part.session())
    {
        using namespace msg;
        const struct {
            const char* topic;
            const MessageType& type;
            void (PartReader::*take)(std::span<const uint8_t>, RecordedFrame&);
        } kinds[] = {
            {kFrameHeaderTopic, vqd_msgs::FrameHeader::kType, &PartReader::takeFrameHeader},
            {kAmplitudeRawTopic, sensor_msgs::Image::kType, &PartReader::takeAmplitude},
            {kDepthRawTopic, sensor_msgs::Image::kType, &PartReader::takeDepth},
            {kRangeRawTopic, sensor_msgs::Image::kType, &PartReader::takeDepth},
            {kRawFrameTopic, vqd_msgs::RawFrame::kType, &PartReader::takeRawFrame},
            {kParametersTopic, vqd_msgs::Parameters::kType, &PartReader::takeParameters},
            {kEventsTopic, vqd_msgs::Event::kType, &PartReader::takeEvent},
        };
        for (const auto& [number, channel] : part.file().channels())
            for (const auto& kind : kinds)
                if (channel.topic == part.topics() + kind.topic && channel.type == kind.type.name &&
                    channel.encoding == "cdr")
                    m_takers[number] = kind.take;
    }

    // False at the end. Fails where the file cannot be read; the next call goes on behind that.
    bool next(RecordedFrame& frame)
    {
        m_parts = 0;
        frame.events.clear();
        while (const std::optional<mcap::Message> message = m_cursor.next()) {
            const auto taker = m_takers.find(message->channel);
            if (taker == m_takers.end())
                continue;
            (this->*taker->second)(message->data, frame);
            if (m_parts == kWhole) {
                requireStartCode(frame);
                frame.session = m_session;
                frame.parameters = m_parameters;
                return true;
            }
        }
        return false;
    }

private:
    // Parts of a frame have its stamp. One of another frame ends a frame that was never whole.
    void begin(Part part, const msg::std_msgs::Header& header)
    {
        const int64_t stamp = nanoseconds(header.stamp);
        if (stamp != m_stamp || (m_parts & part) != 0)
            m_parts = 0;
        m_stamp = stamp;
    }

    void takeFrameHeader(std::span<const uint8_t> bytes, RecordedFrame& frame)
    {
        msg::fromCdr(bytes, m_header);
        begin(kHeaderPart, m_header.header);
        takeHeader(m_header, frame);
        m_parts |= kHeaderPart;
    }

    void takePlane(std::span<const uint8_t> bytes, RecordedFrame& frame, Part part)
    {
        msg::fromCdr(bytes, m_image);
        if (m_image.width != VQD_WIDTH || m_image.height != VQD_HEIGHT || m_image.step != 2 * VQD_WIDTH ||
            m_image.is_bigendian != 0 || m_image.data.size() != kPlaneBytes)
            throw Failure(kUsage, "a plane is not one of 320 x 240 pixels of 16 bits");
        begin(part, m_image.header);
        std::memcpy(planeOf(frame, part == kAmplitudePart ? 0 : 1).data(), m_image.data.data(), kPlaneBytes);
        m_parts |= part;
    }
    void takeAmplitude(std::span<const uint8_t> bytes, RecordedFrame& frame)
    {
        takePlane(bytes, frame, kAmplitudePart);
    }
    void takeDepth(std::span<const uint8_t> bytes, RecordedFrame& frame) { takePlane(bytes, frame, kDepthPart); }

    void takeRawFrame(std::span<const uint8_t> bytes, RecordedFrame& frame)
    {
        msg::fromCdr(bytes, m_raw);
        m_parts = 0;
        if (m_raw.packed)
            m_packing.unpack(m_raw.planes, {planeOf(frame, 0), planeOf(frame, 1)});
        else if (m_raw.planes.size() == 2 * kPlaneBytes)
            std::ranges::copy(m_raw.planes, frame.raw.begin() + kHeaderBytes);
        else
            throw Failure(kUsage, "the planes of a frame are not two of 320 x 240 pixels of 16 bits");
        takeHeader(m_raw, frame);
        m_parts = kWhole;
    }

    void takeParameters(std::span<const uint8_t> bytes, RecordedFrame&)
    {
        m_parameters.reset(); // what cannot be read is not what was before
        msg::vqd_msgs::Parameters message;
        msg::fromCdr(bytes, message);
        const auto parameters = std::make_shared<RecordedParameters>();
        parameters->image.assign(message.image.begin(), message.image.end());
        parameters->host = hostValuesFrom(parsedObject(message.host, "the recorded parameters"));
        m_parameters = parameters;
    }

    void takeEvent(std::span<const uint8_t> bytes, RecordedFrame& frame)
    {
        msg::vqd_msgs::Event message;
        msg::fromCdr(bytes, message);
        parsedObject(message.json, "an event");
        frame.events.push_back(std::move(message.json));
    }

    using Taker = void (PartReader::*)(std::span<const uint8_t>, RecordedFrame&);

    mcap::Cursor m_cursor;
    const uint64_t m_session;
    std::map<uint16_t, Taker> m_takers; // by channel
    unsigned m_parts = 0;               // of the frame under way
    int64_t m_stamp = 0;                // its
    std::shared_ptr<const RecordedParameters> m_parameters;

    // Kept from frame to frame, since fresh memory costs time.
    Packing m_packing;
    msg::vqd_msgs::FrameHeader m_header;
    msg::sensor_msgs::Image m_image;
    msg::vqd_msgs::RawFrame m_raw;
};

RecordedFrames::RecordedFrames(std::vector<Recording> parts, Warn warn)
    : m_parts(std::move(parts)), m_warn(std::move(warn))
{
    if (m_parts.empty())
        throw Failure(kUsage, "there is no recording");
    std::ranges::stable_sort(m_parts, std::less(), &Recording::begins);
    for (const Recording& part : m_parts)
        if (part.camera().serial != camera().serial || part.camera().product != camera().product)
            throw Failure(kUsage,
                          part.path().string() + " is of another camera than " + m_parts.front().path().string());
}

RecordedFrames::~RecordedFrames() = default;
RecordedFrames::RecordedFrames(RecordedFrames&&) noexcept = default;

bool RecordedFrames::next(RecordedFrame& frame)
{
    for (; m_part < m_parts.size(); ++m_part, m_reader.reset()) {
        Recording& part = m_parts[m_part];
        if (!m_reader) {
            m_reader = std::make_unique<PartReader>(part);
            m_warned = false;
            if (!part.file().damage().empty())
                warn(part, part.file().damage());
        }
        for (;;) {
            try {
                if (m_reader->next(frame))
                    return true;
                break;
            } catch (const Failure& failure) {
                warn(part, failure.what());
            }
        }
    }
    m_part = 0;
    return false;
}

void RecordedFrames::warn(const Recording& part, const std::string& what)
{
    if (!std::exchange(m_warned, true) && m_warn)
        m_warn(part.path().string() + ": " + what);
}
