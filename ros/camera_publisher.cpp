// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Nothing here waits for the worker or for readers, but a short question after the reason while no frames come.
#include "ros/camera_publisher.h"

#include <filesystem>

#include "host/failure.h"
#include "host/host_time.h"
#include "host/topic_name.h"

namespace
{

constexpr int kConnectMs = 5000; // a worker that starts listens within this

Json parsed(const char* text)
{
    return Json::parse(text != nullptr ? text : "", nullptr, false);
}

std::string textAt(const Json& json, const char* path)
{
    const Json::json_pointer at(path);
    return json.is_structured() && json.contains(at) && json.at(at).is_string() ? json.at(at).get<std::string>() : "";
}

vqd_client* connectTo(const std::string& worker)
{
    vqd_client_error error;
    vqd_client* const client = vqd_client_connect(worker.c_str(), kConnectMs, &error);
    if (client == nullptr)
        throw Failure(error.result == VQD_CLIENT_NO_WORKER ? kNoCamera : kFailed, error.text);
    return client;
}

Plane planeOf(const uint16_t* pixels)
{
    return Plane(pixels, VQD_PIXELS);
}

} // namespace

CameraPublisher::CameraPublisher(const Participant& participant, PublisherOptions options,
                                 std::function<void(const std::string& sentence)> say)
    : m_participant(participant), m_options(std::move(options)), m_say(std::move(say)),
      m_client(connectTo(m_options.worker)),
      m_diagnostics(participant, "/diagnostics", msg::diagnostic_msgs::DiagnosticArray::kType, Durability::stream)
{
    m_health.name = m_options.name.empty() ? std::filesystem::path(m_options.worker).stem().string() : m_options.name;
}

void CameraPublisher::take()
{
    for (;;) {
        vqd_client_frame frame;
        vqd_client_error error;
        const int result = vqd_client_next(m_client.get(), 0, &frame, &error);
        if (result == VQD_CLIENT_TIMEOUT || result == VQD_CLIENT_LOST)
            return;
        if (result != VQD_CLIENT_OK)
            throw Failure(kFailed, error.text);
        takeFrame(frame);
    }
}

void CameraPublisher::takeFrame(const vqd_client_frame& frame)
{
    if (frame.width != VQD_WIDTH || frame.height != VQD_HEIGHT)
        throw Failure(kFailed, "the worker sends frames of another size");
    while (waits()) // the frame before is late
        sendNext();
    m_health.add({frame.temperature, frame.dropped + frame.missed, (frame.flags & VQD_CLIENT_FRAME_REOPENED) != 0});
    followParameters();
    if (!m_topics || !m_mismatch.empty())
        return;
    m_depth.header = headerOf(frame.real_time_ns, m_topics->frameId);
    m_info.header = m_amplitude.header = m_cloud.header = m_depth.header;
    // What nobody reads now is not sent later either: its pixels would be those of another frame.
    const auto depth = planeOf(frame.depth), amplitude = planeOf(frame.amplitude);
    m_depth.data.clear();
    m_amplitude.data.clear();
    m_cloud.data.clear();
    if (m_topics->depth.hasReaders())
        fillImage(m_depth, depth, "16UC1");
    sendDepth();
    if (m_topics->amplitude.hasReaders())
        fillImage(m_amplitude, amplitude, "mono16");
    if (m_topics->points && m_topics->points->hasReaders())
        fillCloud(m_cloud, m_rays, depth, amplitude);
}

// The first ones decide of the topics, as far as the options do not. Later ones may be of another kind of images.
void CameraPublisher::followParameters()
{
    const char* const text = vqd_client_parameters(m_client.get());
    if (text == nullptr || m_parameters == text)
        return;
    m_parameters = text;
    m_view = cameraViewFrom(parsed(text));
    if (!m_topics)
        makeTopics();
    if (m_options.name.empty() && m_view.serial != m_health.serial)
        throw Failure(kFailed, "the worker has another camera now than that of the topics /" + m_health.name);
    m_health.serial = m_view.serial;
    m_info = cameraInfoOf(m_view);
    if (m_topics->points)
        m_rays = raysOf(m_view);
    const std::string before = std::move(m_mismatch);
    m_mismatch.clear();
    if (m_view.kind != m_topics->kind)
        m_mismatch = std::string("the camera is set for ") + depthWord(m_view.kind) + "/" + imageWord(m_view.kind) +
                     ", but the topic is " + depthWord(m_topics->kind) + "/" + imageWord(m_topics->kind) +
                     ", so nothing is published";
    if (m_mismatch != before)
        m_say(m_mismatch.empty() ? "the images are those of the topics again" : m_mismatch);
    tellPoses();
}

void CameraPublisher::makeTopics()
{
    using namespace msg::sensor_msgs;
    const ImageKind kind{m_options.rectified.value_or(m_view.kind.rectified),
                         m_options.range.value_or(m_view.kind.range)};
    const std::string name = m_options.name.empty() ? usualTopicName(m_view.serial) : m_options.name;
    m_health.name = name;
    m_health.serial = m_view.serial;
    const std::string depth = "/" + name + "/" + depthWord(kind), amplitude = "/" + name + "/amplitude";
    const auto writer = [this](const std::string& topic, const msg::MessageType& type) {
        return Writer(m_participant, topic, type, Durability::stream);
    };
    m_topics.emplace(Topics{kind,
                            opticalFrame(name),
                            writer(depth + "/" + imageWord(kind), Image::kType),
                            writer(depth + "/camera_info", CameraInfo::kType),
                            writer(amplitude + "/" + imageWord(kind), Image::kType),
                            writer(amplitude + "/camera_info", CameraInfo::kType),
                            {},
                            {}});
    if (m_options.points)
        m_topics->points.emplace(writer("/" + name + "/points", PointCloud2::kType));
    m_say("publishes " + depth + "/" + imageWord(kind) + " and " + amplitude + "/" + imageWord(kind) +
          (m_options.points ? " and points" : ""));
}

// All at once, since a listener that comes later gets the last message only.
void CameraPublisher::tellPoses()
{
    if (m_view.profilePath.empty())
        return;
    msg::tf2_msgs::TFMessage message;
    try {
        for (const Pose& pose : readProfile(m_view.profilePath, m_view.serial).poses)
            message.transforms.push_back(transformOf(pose, m_topics->frameId));
    } catch (const Failure& failure) {
        m_say(std::string("the camera's poses are not known: ") + failure.what());
        return;
    }
    if (message.transforms.empty())
        return;
    for (auto& transform : message.transforms)
        transform.header.stamp = headerOf(hostTime().real, "").stamp;
    if (!m_topics->transforms)
        m_topics->transforms.emplace(m_participant, "/tf_static", msg::tf2_msgs::TFMessage::kType, Durability::latched);
    m_topics->transforms->write(message);
}

void CameraPublisher::sendNext()
{
    const Step step = m_next;
    m_next = nullptr;
    (this->*step)();
}

void CameraPublisher::sendImage(msg::sensor_msgs::Image& image, Writer& writer, Writer& info)
{
    if (!image.data.empty())
        writer.write(image);
    if (info.hasReaders())
        info.write(m_info);
}

void CameraPublisher::sendDepth()
{
    sendImage(m_depth, m_topics->depth, m_topics->depthInfo);
    m_next = &CameraPublisher::sendAmplitude;
}

void CameraPublisher::sendAmplitude()
{
    sendImage(m_amplitude, m_topics->amplitude, m_topics->amplitudeInfo);
    if (m_topics->points)
        m_next = &CameraPublisher::sendPoints;
}

void CameraPublisher::sendPoints()
{
    if (!m_cloud.data.empty())
        m_topics->points->write(m_cloud);
}

std::string CameraPublisher::trouble()
{
    constexpr int kSoon = 100;
    if (m_health.hasFrames())
        return m_mismatch;
    const char* reply = nullptr;
    if (descriptor() < 0 ||
        vqd_client_request(m_client.get(), R"({"do":"state"})", kSoon, &reply, nullptr) != VQD_CLIENT_OK)
        return "the worker does not answer";
    const Json state = parsed(reply);
    const std::string error = textAt(state, "/state/error");
    return "no frames: " + (error.empty() ? textAt(state, "/state/state") : error);
}

// Not what passes while a camera starts or is opened again.
void CameraPublisher::sayWhatLasts(const std::string& why)
{
    constexpr int kReports = 3;
    m_reportsOfThis = why == m_why ? m_reportsOfThis + 1 : 1;
    m_why = why;
    if (m_reportsOfThis == kReports && why != m_said) {
        m_said = why;
        m_say(why.empty() ? "frames come again" : why);
    }
}

void CameraPublisher::tellHealth()
{
    const std::string why = trouble();
    sayWhatLasts(why == m_mismatch ? "" : why); // that was said at once
    const auto now = Clock::now();
    const double seconds = std::chrono::duration<double>(now - std::exchange(m_lastReport, now)).count();
    m_health.notTaken = 0;
    if (m_topics)
        for (const Writer* writer :
             {&m_topics->depth, &m_topics->depthInfo, &m_topics->amplitude, &m_topics->amplitudeInfo})
            m_health.notTaken += writer->failures();
    if (m_topics && m_topics->points)
        m_health.notTaken += m_topics->points->failures();
    msg::diagnostic_msgs::DiagnosticArray message;
    message.header = headerOf(hostTime().real, "");
    message.status.push_back(m_health.report(seconds, why));
    m_diagnostics.write(message);
}
