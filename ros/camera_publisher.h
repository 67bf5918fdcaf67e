// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// One camera's topics, fed by its worker. The topics keep their names and meaning as long as it lives.
#pragma once

#include <chrono>
#include <functional>
#include <optional>

#include "ros/camera_messages.h"
#include "ros/health.h"
#include "ros/participant.h"
#include "worker/client/vqd_client.h"

struct PublisherOptions {
    std::string worker;                   // name or socket
    std::string name;                     // of the topics; empty for the usual one
    std::optional<bool> rectified, range; // nothing: as the camera is set when its first frame comes
    bool points = false;
};

class CameraPublisher
{
public:
    // Waits for the worker, not for its camera. Fails when there is no worker.
    CameraPublisher(const Participant& participant, PublisherOptions options,
                    std::function<void(const std::string& sentence)> say);

    // Whatever makes take() worth a call; -1 while there is no connection, which take() makes again.
    int descriptor() const { return vqd_client_descriptor(m_client.get()); }

    // Takes what has come, and sends the first message of a frame. Fails when the worker speaks another language.
    void take();

    // A frame's messages are sent with kPause between them: a reader's socket has room for one image, not for two.
    static constexpr std::chrono::milliseconds kPause{4};
    bool waits() const { return m_next != nullptr; }
    void sendNext();

    // The state of the camera for the diagnostics of the time since the last call.
    void tellHealth();

private:
    using Clock = std::chrono::steady_clock;
    using Step = void (CameraPublisher::*)();
    struct CloseClient {
        void operator()(vqd_client* client) const { vqd_client_close(client); }
    };
    struct Topics {
        ImageKind kind;
        std::string frameId;
        Writer depth, depthInfo, amplitude, amplitudeInfo;
        std::optional<Writer> points, transforms;
    };

    void takeFrame(const vqd_client_frame& frame);
    void followParameters();
    void makeTopics();
    void tellPoses();
    void sendImage(msg::sensor_msgs::Image& image, Writer& writer, Writer& info);
    void sendDepth();
    void sendAmplitude();
    void sendPoints();
    std::string trouble();
    void sayWhatLasts(const std::string& why);

    const Participant& m_participant;
    const PublisherOptions m_options;
    const std::function<void(const std::string& sentence)> m_say;
    std::unique_ptr<vqd_client, CloseClient> m_client;
    Writer m_diagnostics;
    std::string m_parameters; // as they came
    CameraView m_view;
    std::optional<Topics> m_topics;
    std::string m_mismatch; // why the frames are not those of the topics
    msg::sensor_msgs::Image m_depth, m_amplitude;
    msg::sensor_msgs::CameraInfo m_info;
    msg::sensor_msgs::PointCloud2 m_cloud;
    std::vector<Ray> m_rays;
    Step m_next = nullptr;
    Health m_health;
    Clock::time_point m_lastReport = Clock::now();
    std::string m_why, m_said; // there are no frames: now, and as it was said
    int m_reportsOfThis = 0;
};
