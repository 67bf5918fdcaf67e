// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Every channel is a message of ROS 2, our own types included, because its tools take a file with others as broken.
#include "recording/camera_writer.h"

#include <algorithm>

#include "recording/layout.h"

namespace
{

constexpr size_t kChunkBytes = 1U << 20;       // of messages; what a crash takes
constexpr uint64_t kChunkTime = 1'000'000'000; // the same, in ns

constexpr size_t kHeaderBytes = 512, kPlaneBytes = VQD_PIXELS * sizeof(uint16_t);
static_assert(kHeaderBytes + 2 * kPlaneBytes == VQD_FRAME_BYTES);
static_assert(int{kFrameReopened} == VQD_WIRE_REOPENED && int{kFrameCorrected} == VQD_WIRE_CORRECTED &&
              int{kFrameProfile} == VQD_WIRE_PROFILE && int{kFrameClockStep} == VQD_WIRE_CLOCK_STEP);

// The values of a vector in their order in memory, which is that of the file.
template <typename T> std::span<const uint8_t> bytesOf(const std::vector<T>& values)
{
    return {reinterpret_cast<const uint8_t*>(values.data()), values.size() * sizeof(T)};
}

std::span<const uint8_t> bytesOf(const std::string& text)
{
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

mcap::Compression compressionFor(const CameraWriter::Options& options)
{
    const bool isPacked = options.compact && !options.images; // packing it twice costs time and gains nothing
    return options.compress && !isPacked ? mcap::Compression::zstd : mcap::Compression::none;
}

// No chunk ends by itself: it would end in the middle of a frame.
mcap::Writer::Options fileOptions(const CameraWriter::Options& options)
{
    return {compressionFor(options), SIZE_MAX, UINT64_MAX, options.images};
}

// A lens for the middle of its pixels, which is how both the library and ROS count them.
msg::sensor_msgs::CameraInfo lensOf(const HostValues& values)
{
    const auto [fx, fy, cx, cy] = values.intrinsic;
    const auto [k1, k2, k3, p1, p2, skew] = values.distortion;
    msg::sensor_msgs::CameraInfo lens;
    lens.width = VQD_WIDTH;
    lens.height = VQD_HEIGHT;
    lens.distortion_model = "plumb_bob";
    lens.d = {k1, k2, p1, p2, k3};
    lens.k = {fx, 0, cx, 0, fy, cy, 0, 0, 1};
    lens.r = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    lens.p = {fx, 0, cx, 0, 0, fy, cy, 0, 0, 0, 1, 0};
    return lens;
}

template <typename Message> void takeHeader(Message& message, const QueuedFrame& frame)
{
    message.sequence = frame.header.sequence;
    message.monotonic_time_ns = static_cast<uint64_t>(frame.header.monotonic_time_ns);
    message.flags = frame.header.flags | (frame.notRecorded > 0 ? kFrameAfterDrop : 0U);
    message.dropped = frame.header.dropped;
    std::copy_n(frame.raw.begin(), message.data.size(), message.data.begin());
}

} // namespace

CameraWriter::CameraWriter(int descriptor, const CameraFacts& facts, Options options, uint64_t logTime)
    : m_options(std::move(options)), m_hostCorrected(facts.hostCorrected),
      m_hardware(facts.serial.empty() ? facts.product : facts.serial), m_file(descriptor, fileOptions(m_options))
{
    describe(facts, logTime);
    addChannels();
}

void CameraWriter::describe(const CameraFacts& facts, uint64_t logTime)
{
    m_file.metadata(kMetadata, {{kFormatKey, std::to_string(kRecordingFormat)},
                                {kSerialKey, facts.serial},
                                {kNameKey, m_options.name},
                                {kProductKey, facts.product},
                                {kVendorKey, facts.vendor},
                                {kUsbKey, facts.usb},
                                {kHostCorrectedKey, facts.hostCorrected ? "true" : "false"},
                                {kPartKey, std::to_string(m_options.part)},
                                {kSessionKey, std::to_string(m_options.session)},
                                {kSoftwareKey, "VQD_API " VQD_VERSION}});
    const std::string folder = (facts.serial.empty() ? "unknown" : facts.serial) + '/';
    constexpr char kBinary[] = "application/octet-stream";
    const struct {
        const char* name;
        const char* type;
        std::span<const uint8_t> bytes;
    } files[] = {
        {kEepromFile, kBinary, facts.eeprom},
        {kOrthogonalFile, kBinary, facts.orthogonal},
        {kFppnFile, kBinary, bytesOf(facts.fppn)},
        {kFactorsFile, kBinary, bytesOf(facts.factors)},
        {kProfileFile, "application/json", bytesOf(facts.profile)},
    };
    for (const auto& file : files)
        if (!file.bytes.empty())
            m_file.attachment(folder + file.name, file.type, logTime, file.bytes);
}

void CameraWriter::addChannels()
{
    using namespace msg;
    const std::string name = "/" + m_options.name;
    const auto add = [&](bool wanted, const char* topic, const MessageType& type) {
        return wanted ? m_file.addChannel(name + topic, type) : uint16_t{};
    };
    const bool planes = !m_options.compact;
    m_channels.raw = add(m_options.compact, kRawFrameTopic, vqd_msgs::RawFrame::kType);
    m_channels.depthPlane = add(planes, m_hostCorrected ? kRangeRawTopic : kDepthRawTopic, sensor_msgs::Image::kType);
    m_channels.amplitudePlane = add(planes, kAmplitudeRawTopic, sensor_msgs::Image::kType);
    m_channels.header = add(planes, kFrameHeaderTopic, vqd_msgs::FrameHeader::kType);
    m_channels.depthImage = add(m_options.images, kDepthImageTopic, sensor_msgs::Image::kType);
    m_channels.amplitudeImage = add(m_options.images, kAmplitudeImageTopic, sensor_msgs::Image::kType);
    m_channels.depthInfo = add(hasDepthLens(), kDepthInfoTopic, sensor_msgs::CameraInfo::kType);
    m_channels.amplitudeInfo = add(true, kAmplitudeInfoTopic, sensor_msgs::CameraInfo::kType);
    m_channels.parameters = add(true, kParametersTopic, vqd_msgs::Parameters::kType);
    m_channels.events = add(true, kEventsTopic, vqd_msgs::Event::kType);
    m_channels.diagnostics = m_file.addChannel(kDiagnosticsTopic, diagnostic_msgs::DiagnosticArray::kType);
}

msg::std_msgs::Header CameraWriter::header(const RecordedTime& time) const
{
    constexpr int64_t kSecond = 1'000'000'000;
    msg::std_msgs::Header header;
    header.stamp.sec = static_cast<int32_t>(time.real / kSecond);
    header.stamp.nanosec = static_cast<uint32_t>(time.real % kSecond);
    header.frame_id = m_options.name + "_optical_frame";
    return header;
}

template <typename Message> void CameraWriter::write(uint16_t channel, const Message& message, const RecordedTime& time)
{
    const std::span<const uint8_t> cdr = msg::toCdr(m_cdr, message);
    m_file.message(channel, m_sequence, time.log, static_cast<uint64_t>(time.real), cdr);
    m_openSince = m_open == 0 ? time.log : m_openSince;
    m_open += cdr.size();
}

// Between frames, so that what is left after a crash ends with a whole one.
void CameraWriter::mayEndChunk(const RecordedTime& time)
{
    if (m_open < kChunkBytes && time.log - m_openSince < kChunkTime)
        return;
    m_open = 0;
    m_file.endChunk();
}

void CameraWriter::image(uint16_t channel, const char* encoding, std::span<const uint8_t> plane,
                         const RecordedTime& time)
{
    m_image.header = header(time);
    m_image.height = VQD_HEIGHT;
    m_image.width = VQD_WIDTH;
    m_image.encoding = encoding;
    m_image.step = VQD_WIDTH * sizeof(uint16_t);
    m_image.data.assign(plane.begin(), plane.end());
    write(channel, m_image, time);
}

void CameraWriter::parameters(const RecordedParameters& parameters, const RecordedTime& time)
{
    msg::vqd_msgs::Parameters message;
    message.header = header(time);
    std::copy_n(parameters.image.begin(), message.image.size(), message.image.begin());
    message.host = hostValuesJson(parameters.host).dump();
    m_lens = lensOf(parameters.host);
    write(m_channels.parameters, message, time);
}

void CameraWriter::frame(const QueuedFrame& frame, const RecordedTime& time)
{
    m_sequence = static_cast<uint32_t>(frame.header.sequence);
    if (m_options.compact)
        packedFrame(frame, time);
    else
        rawImages(frame, time);
    if (m_options.images) {
        image(m_channels.depthImage, "16UC1", bytesOf(frame.depth), time);
        image(m_channels.amplitudeImage, "mono16", bytesOf(frame.amplitude), time);
    }
    m_lens.header = header(time);
    if (hasDepthLens())
        write(m_channels.depthInfo, m_lens, time);
    write(m_channels.amplitudeInfo, m_lens, time);
    mayEndChunk(time);
}

void CameraWriter::rawImages(const QueuedFrame& frame, const RecordedTime& time)
{
    msg::vqd_msgs::FrameHeader message;
    message.header = header(time);
    takeHeader(message, frame);
    write(m_channels.header, message, time);
    const std::span planes = std::span(frame.raw).subspan(kHeaderBytes);
    image(m_channels.amplitudePlane, "mono16", planes.first(kPlaneBytes), time);
    image(m_channels.depthPlane, "16UC1", planes.last(kPlaneBytes), time);
}

void CameraWriter::packedFrame(const QueuedFrame& frame, const RecordedTime& time)
{
    m_packed.header = header(time);
    takeHeader(m_packed, frame);
    static_assert(kHeaderBytes % alignof(uint16_t) == 0);
    const std::span bytes = std::span(frame.raw).subspan(kHeaderBytes);
    const std::span planes(reinterpret_cast<const uint16_t*>(bytes.data()), 2 * VQD_PIXELS);
    const std::span<const uint8_t> packed = m_packing.pack({planes.first(VQD_PIXELS), planes.last(VQD_PIXELS)});
    m_packed.packed = !packed.empty();
    const std::span<const uint8_t> kept = m_packed.packed ? packed : bytes;
    m_packed.planes.assign(kept.begin(), kept.end());
    write(m_channels.raw, m_packed, time);
}

void CameraWriter::event(const std::string& name, const Json& json, const RecordedTime& time)
{
    msg::vqd_msgs::Event message;
    message.header = header(time);
    message.event = name;
    message.json = json.dump(-1, ' ', false, Json::error_handler_t::replace);
    write(m_channels.events, message, time);
    mayEndChunk(time);
}

void CameraWriter::diagnostics(uint8_t level, const std::string& message, const mcap::Names& values,
                               const RecordedTime& time)
{
    msg::diagnostic_msgs::DiagnosticArray array;
    array.header = header(time);
    msg::diagnostic_msgs::DiagnosticStatus& status = array.status.emplace_back();
    status.level = level;
    status.name = m_options.name;
    status.message = message;
    status.hardware_id = m_hardware;
    for (const auto& [key, value] : values) {
        msg::diagnostic_msgs::KeyValue& pair = status.values.emplace_back();
        pair.key = key;
        pair.value = value;
    }
    write(m_channels.diagnostics, array, time);
    mayEndChunk(time);
}
