// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Reads the topics of a camera by Fast DDS, and the same frames from the worker's socket, and compares them. Ends when
// it has compared so many images of each kind, with all else that it was to get. Prints a JSON object.
//   ros_receiver SOCKET NAME KIND IMAGES [best-effort] [points] [transforms] [socket=BYTES] [keep=FOLDER]
// where KIND is such as depth/image_raw. FOLDER gets some payloads of each topic and the planes of the worker's frames,
// for another decoder. ROS_DOMAIN_ID is obeyed.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <thread>

#include "fast_reader.h"
#include "worker/client/vqd_client.h"

namespace
{

using Json = nlohmann::ordered_json;
using fast::Cdr;
constexpr size_t kPixels = 320 * 240;

struct Header {
    int64_t stamp = 0;
    std::string frame;
};

Header headerIn(Cdr& cdr)
{
    int32_t seconds = 0;
    uint32_t nanoseconds = 0;
    Header header;
    cdr >> seconds >> nanoseconds >> header.frame;
    header.stamp = seconds * int64_t{1'000'000'000} + nanoseconds;
    return header;
}

struct Image {
    Header header;
    uint32_t height = 0, width = 0, step = 0;
    std::string encoding;
    uint8_t bigEndian = 0;
    std::vector<uint8_t> data;
    bool whole(const char* kind) const
    {
        return height == 240 && width == 320 && step == 640 && encoding == kind && bigEndian == 0 &&
               data.size() == 2 * kPixels;
    }
};

Image imageIn(Cdr& cdr)
{
    Image image;
    image.header = headerIn(cdr);
    cdr >> image.height >> image.width >> image.encoding >> image.bigEndian >> image.step >> image.data;
    return image;
}

struct Source {
    std::vector<uint16_t> depth, amplitude;
};

struct Cloud {
    std::vector<float> points; // x, y, z, intensity
    bool layout = false;
};

class Receiver
{
public:
    explicit Receiver(std::string folder) : m_folder(std::move(folder)) {}

    void readFrom(fast::Participant& participant, const std::string& name, const std::string& kind, bool reliable)
    {
        const auto read = [&](const std::string& topic, const std::string& type, bool isReliable, bool latched,
                              const std::function<void(Cdr&)>& take) {
            participant.read(topic, type, isReliable, latched,
                             [this, topic, take](const fast::Bytes& payload, Cdr& cdr) {
                                 keep(topic, payload);
                                 take(cdr);
                             });
        };
        const std::string words[] = {kind.substr(0, kind.find('/')), "amplitude"};
        const std::string image = kind.substr(kind.find('/'));
        std::map<int64_t, std::vector<uint8_t>>* const kept[] = {&m_depth, &m_amplitude};
        const char* const encodings[] = {"16UC1", "mono16"};
        for (int i = 0; i < 2; ++i) {
            read("/" + name + "/" + words[i] + image, "sensor_msgs::msg::dds_::Image_", reliable, false,
                 [this, to = kept[i], encoding = encodings[i]](Cdr& cdr) { takeImage(cdr, *to, encoding); });
            read("/" + name + "/" + words[i] + "/camera_info", "sensor_msgs::msg::dds_::CameraInfo_", reliable, false,
                 [this](Cdr& cdr) { takeInfo(cdr); });
        }
        read("/diagnostics", "diagnostic_msgs::msg::dds_::DiagnosticArray_", true, false,
             [this](Cdr& cdr) { takeDiagnostics(cdr); });
        read("/" + name + "/points", "sensor_msgs::msg::dds_::PointCloud2_", reliable, false,
             [this](Cdr& cdr) { takeCloud(cdr); });
        read("/tf_static", "tf2_msgs::msg::dds_::TFMessage_", true, true, [this](Cdr& cdr) { takeTransforms(cdr); });
    }

    void addSource(int64_t stamp, Source source)
    {
        const std::lock_guard lock(m_mutex);
        if (!m_folder.empty()) {
            write(std::to_string(stamp) + ".depth", source.depth.data(), 2 * kPixels);
            write(std::to_string(stamp) + ".amplitude", source.amplitude.data(), 2 * kPixels);
        }
        m_source[stamp] = std::move(source);
    }

    // How many images have come of frames that came from the worker, too, and whether all are the same.
    size_t compared(bool depth)
    {
        const std::lock_guard lock(m_mutex);
        size_t equal = 0;
        for (const auto& [stamp, bytes] : depth ? m_depth : m_amplitude) {
            const auto source = m_source.find(stamp);
            if (source == m_source.end())
                continue;
            const auto& plane = depth ? source->second.depth : source->second.amplitude;
            if (bytes.size() != 2 * plane.size() || memcmp(bytes.data(), plane.data(), bytes.size()) != 0)
                m_faults.insert(depth ? "a depth image differs from its frame" : "an amplitude image differs");
            ++equal;
        }
        return equal;
    }

    // Clouds whose points are where the depth image puts them.
    size_t comparedClouds(bool range)
    {
        const std::lock_guard lock(m_mutex);
        size_t count = 0;
        for (const auto& [stamp, cloud] : m_clouds)
            if (const auto source = m_source.find(stamp); source != m_source.end()) {
                if (!cloud.layout || !fits(cloud, source->second, range))
                    m_faults.insert("a cloud is not that of its frame");
                ++count;
            }
        return count;
    }

    bool has(const char* what)
    {
        const std::lock_guard lock(m_mutex);
        return m_found.contains(what);
    }

    bool says(const std::string& diagnosis)
    {
        const std::lock_guard lock(m_mutex);
        return m_found.contains("diagnostics") && m_found["diagnostics"].dump().find(diagnosis) != std::string::npos;
    }

    Json found()
    {
        const std::lock_guard lock(m_mutex);
        Json json = m_found;
        json["faults"] = m_faults;
        json["depth"] = m_depth.size();
        json["amplitude"] = m_amplitude.size();
        json["infos"] = m_infos;
        if (!m_folder.empty())
            json["payloads"] = m_payloads;
        if (!m_latency.empty()) {
            std::ranges::sort(m_latency);
            json["median-latency-ms"] = m_latency[m_latency.size() / 2];
            json["most-latency-ms"] = m_latency.back();
        }
        return json;
    }

private:
    void write(const std::string& name, const void* data, size_t size) const
    {
        std::ofstream(m_folder + "/" + name, std::ios::binary)
            .write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
    }

    void keep(const std::string& topic, const fast::Bytes& payload)
    {
        constexpr size_t kMost = 10;
        const std::lock_guard lock(m_mutex);
        Json& kept = m_payloads[topic];
        if (m_folder.empty() || kept.size() == kMost)
            return;
        kept.push_back(std::to_string(++m_kept) + ".cdr");
        write(kept.back(), payload.data(), payload.size());
    }

    static bool fits(const Cloud& cloud, const Source& source, bool range)
    {
        for (size_t i = 0; i < kPixels; ++i) {
            const float* const p = &cloud.points[4 * i];
            const float metres = static_cast<float>(source.depth[i]) * 0.001F;
            const float measured = range ? std::sqrt(p[0] * p[0] + p[1] * p[1] + p[2] * p[2]) : p[2];
            if (source.depth[i] == 0 ? !std::isnan(measured) : std::abs(measured - metres) > 1e-5F * metres)
                return false;
            if (p[3] != static_cast<float>(source.amplitude[i]))
                return false;
            const bool right = i % 320 > 200, below = i / 320 > 160; // optical axes
            if (source.depth[i] != 0 && ((right && p[0] <= 0) || (below && p[1] <= 0)))
                return false;
        }
        return true;
    }

    void takeImage(Cdr& cdr, std::map<int64_t, std::vector<uint8_t>>& to, const char* encoding)
    {
        Image image = imageIn(cdr);
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        const std::lock_guard lock(m_mutex);
        if (!image.whole(encoding))
            m_faults.insert("an image is not 320 x 240 " + std::string(encoding));
        m_found["frame"] = image.header.frame;
        if (&to == &m_depth)
            m_latency.push_back(static_cast<double>((std::chrono::nanoseconds(now).count() - image.header.stamp)) /
                                1e6);
        to[image.header.stamp] = std::move(image.data);
    }

    void takeInfo(Cdr& cdr)
    {
        const Header header = headerIn(cdr);
        uint32_t height = 0, width = 0;
        std::string model;
        std::vector<double> d;
        double k[9], r[9], p[12];
        cdr >> height >> width >> model >> d;
        cdr.deserializeArray(k, 9).deserializeArray(r, 9).deserializeArray(p, 12);
        const std::lock_guard lock(m_mutex);
        ++m_infos;
        m_found["info"] = {{"height", height}, {"width", width}, {"model", model},       {"d", d},
                           {"k", k},           {"p", p},         {"frame", header.frame}};
    }

    void takeDiagnostics(Cdr& cdr)
    {
        headerIn(cdr);
        uint32_t count = 0, values = 0;
        cdr >> count;
        Json all = Json::array();
        for (uint32_t i = 0; i < count; ++i) {
            uint8_t level = 0;
            std::string name, message, hardware, key, value;
            cdr >> level >> name >> message >> hardware >> values;
            Json json{{"level", level}, {"name", name}, {"message", message}, {"hardware", hardware}};
            for (uint32_t v = 0; v < values; ++v) {
                cdr >> key >> value;
                json[key] = value;
            }
            all.push_back(json);
        }
        const std::lock_guard lock(m_mutex);
        m_found["diagnostics"] = all;
    }

    void takeCloud(Cdr& cdr)
    {
        const Header header = headerIn(cdr);
        uint32_t height = 0, width = 0, fields = 0, offset = 0, count = 0, step = 0, row = 0;
        std::string name, names;
        uint8_t type = 0;
        bool bigEndian = true, dense = true;
        std::vector<uint8_t> data;
        cdr >> height >> width >> fields;
        bool good = height == 240 && width == 320;
        for (uint32_t i = 0; i < fields; ++i) {
            cdr >> name >> offset >> type >> count;
            names += name + " ";
            good = good && offset == 4 * i && type == 7 && count == 1;
        }
        cdr >> bigEndian >> step >> row >> data >> dense;
        Cloud cloud;
        cloud.layout = good && names == "x y z intensity " && !bigEndian && step == 16 && row == 5120 && !dense &&
                       data.size() == 16 * kPixels;
        cloud.points.resize(4 * kPixels);
        memcpy(cloud.points.data(), data.data(), std::min(data.size(), 16 * kPixels));
        const std::lock_guard lock(m_mutex);
        m_clouds[header.stamp] = std::move(cloud);
    }

    void takeTransforms(Cdr& cdr)
    {
        uint32_t count = 0;
        cdr >> count;
        Json all = Json::array();
        for (uint32_t i = 0; i < count; ++i) {
            const Header header = headerIn(cdr);
            std::string child;
            double values[7];
            cdr >> child;
            cdr.deserializeArray(values, 7);
            all.push_back({{"parent", header.frame}, {"child", child}, {"values", values}});
        }
        const std::lock_guard lock(m_mutex);
        m_found["transforms"] = all;
    }

    const std::string m_folder; // for payloads and planes; empty for none
    std::mutex m_mutex;
    Json m_payloads = Json::object(); // files by topic
    size_t m_kept = 0;
    std::map<int64_t, Source> m_source;
    std::map<int64_t, std::vector<uint8_t>> m_depth, m_amplitude;
    std::map<int64_t, Cloud> m_clouds;
    std::vector<double> m_latency;
    std::set<std::string> m_faults;
    Json m_found = Json::object();
    size_t m_infos = 0;
};

int run(int argc, char** argv)
{
    const std::set<std::string> words(argv + 5, argv + argc);
    uint32_t socketBytes = 0;
    std::string folder, diagnosis;
    for (const std::string& word : words) {
        if (word.starts_with("diagnosis=")) // to wait for, without frames
            diagnosis = word.substr(strlen("diagnosis="));
        if (word.starts_with("socket="))
            socketBytes = static_cast<uint32_t>(std::stoul(word.substr(strlen("socket="))));
        if (word.starts_with("keep="))
            folder = word.substr(strlen("keep="));
    }
    const char* const domain = getenv("ROS_DOMAIN_ID");
    const std::string kind = argv[3];
    const size_t images = std::stoul(argv[4]);
    vqd_client_error error;
    vqd_client* const client = vqd_client_connect(argv[1], 20000, &error);
    if (client == nullptr)
        throw std::runtime_error(error.text);
    Receiver receiver(folder); // before the participant, whose threads call it
    fast::Participant participant(domain != nullptr ? static_cast<uint32_t>(std::stoul(domain)) : 0, socketBytes);
    receiver.readFrom(participant, argv[2], kind, !words.contains("best-effort"));
    const bool range = kind.starts_with("range");
    size_t frames = 0;
    for (bool done = false; !done;) {
        vqd_client_frame frame;
        if (vqd_client_next(client, 1000, &frame, &error) == VQD_CLIENT_OK) {
            receiver.addSource(frame.real_time_ns,
                               {{frame.depth, frame.depth + kPixels}, {frame.amplitude, frame.amplitude + kPixels}});
            ++frames;
        }
        if (!diagnosis.empty()) {
            done = receiver.says(diagnosis);
            continue;
        }
        done = frames % 8 == 0 && receiver.compared(true) >= images && receiver.compared(false) >= images &&
               receiver.has("info") && receiver.has("diagnostics") &&
               (!words.contains("points") || receiver.comparedClouds(range) > 0) &&
               (!words.contains("transforms") || receiver.has("transforms"));
    }
    vqd_client_close(client);
    Json found = receiver.found();
    for (const auto& [topic, writer] : participant.writers())
        found["writers"][topic] = {{"type", writer.type}, {"user-data", writer.userData}};
    constexpr size_t kFewOf = 20;
    if (const auto [taken, cut] = participant.counts(); cut * kFewOf > taken)
        found["faults"].push_back(std::to_string(cut) + " of " + std::to_string(taken) + " messages end too soon");
    printf("%s\n", found.dump(1).c_str());
    return found["faults"].empty() ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 5) {
        fprintf(stderr, "usage: %s SOCKET NAME KIND IMAGES [WORD...]\n", argv[0]);
        return 2;
    }
    try {
        return run(argc, argv);
    } catch (const std::exception& failure) {
        fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
}
