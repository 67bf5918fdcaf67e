// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Images of a camera as they were live, against those that the unmodified library makes of its recording: when it is
// played as a camera, and when vqd convert processes it anew.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <set>
#include <string_view>
#include <unistd.h>

#include "bus.h"
#include "host/assignments.h"
#include "host/camera_list.h"
#include "host/camera_stream.h"
#include "host/claim.h"
#include "host/documents.h"
#include "host/profile.h"
#include "recording/camera_writer.h"
#include "recording/player.h"
#include "scene.h"
#include "support/temporary_folder.h"
#include "worker/messages.h"

namespace
{

constexpr char kSerial[] = "24061100000001";

// One number for both images of a frame.
size_t hashOf(std::span<const uint8_t> planes)
{
    return std::hash<std::string_view>{}({reinterpret_cast<const char*>(planes.data()), planes.size()});
}
size_t hashOf(const DepthFrame& frame)
{
    static_assert(offsetof(DepthFrame, depth) == sizeof frame.amplitude);
    return hashOf({reinterpret_cast<const uint8_t*>(&frame), sizeof frame.amplitude + sizeof frame.depth});
}

// Settings that an application makes before the first frame, and before a later one.
struct Script {
    int frames = 0, changeAt = 0;
    std::vector<std::string> first, then;
};

// What a run of frames was like: their images, and a look at each frame after it was read.
using Look = std::function<void(const ListedCamera& camera, int number, bool changed)>;

std::vector<size_t> grab(const Script& script, const Look& look)
{
    std::vector<size_t> hashes;
    const std::vector<ListedCamera> cameras = listCameras();
    const ListedCamera& camera = cameras.front();
    applyProfile(camera, findProfile(cameras, camera));
    m_nEdgeThres = 25; // an application may set these itself
    m_nDepthGab = 200;
    requireClaim(camera);
    {
        CameraStream stream(camera);
        const auto frame = std::make_unique<DepthFrame>();
        const auto set = [&](const std::vector<std::string>& settings) {
            for (const Assignment& assignment : parseAssignments(settings))
                sendAssignment(camera, assignment);
        };
        set(script.first);
        for (int number = 1; number <= script.frames; ++number) {
            if (number == script.changeAt)
                set(script.then);
            if (!stream.tryRead(*frame))
                throw std::runtime_error("the camera was opened again");
            hashes.push_back(hashOf(*frame));
            look(camera, number, number == 1 || number == script.changeAt);
        }
    }
    closeClaimed();
    return hashes;
}

class Replay : public testing::Test
{
protected:
    Replay() { setenv("XDG_DATA_HOME", folder.c_str(), 1); }

    void plug(const std::string& product, uint16_t productId)
    {
        sim::Config config;
        config.product = product;
        config.productId = productId;
        config.framesPerSecond = 0;
        config.source = sim::makeScene({});
        config.serial.back() = 1;
        m_camera = bus->add(config);
    }

    // The same place, but the recording instead of the camera.
    void plugRecording()
    {
        bus->unplug(m_camera);
        std::vector<Recording> parts;
        parts.emplace_back(file);
        const auto player =
            std::make_shared<Player>(RecordedFrames(std::move(parts), {}), Player::Options{false, false});
        sim::Config config = playedConfig(player->camera());
        config.framesPerSecond = 0;
        config.source = player;
        m_camera = bus->add(config);
        bus->withCamera(m_camera, [&](sim::Camera& camera) {
            camera.eeprom = playedEeprom(player->camera(), player->firstParameters());
            for (auto& [region, bytes] : playedTables(player->camera()))
                camera.regions[region] = bytes;
        });
    }

    // A lens that no EEPROM can hold, factors that follow from it, and an offset for each block.
    void writeProfileOf(const ListedCamera& camera) const
    {
        Profile profile;
        profile.serial = kSerial;
        profile.product = camera.szDeviceName;
        profile.eeprom = fingerprint(camera.eeprom);
        profile.depth = LensSet{{203.87654F, 204.12345F, 160.4321F, 119.8765F},
                                {-0.345678F, 0.1212121F, 0.0004321F, -0.000123F, 0.000321F, 0}};
        for (int i = 0; i < 4800; ++i)
            profile.fppn.push_back(i * 7 % 61 - 20);
        profile.orthogonalOfLens = true;
        writeProfile(userProfilePath(kSerial), profile);
    }

    // Grabs and records.
    std::vector<size_t> record(const Script& script, bool compact)
    {
        const std::vector<ListedCamera> cameras = listCameras();
        requireClaim(cameras.front());
        const Bytes orthogonal = readOrthogonalTable(cameras.front());
        closeClaimed();
        const int descriptor = open(file.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0666);
        std::optional<CameraWriter> writer;
        const auto hashes = grab(script, [&](const ListedCamera& camera, int number, bool changed) {
            QueuedFrame frame;
            frame.raw.assign(std::begin(buffers), std::end(buffers));
            frame.header.sequence = static_cast<uint64_t>(number);
            frame.header.monotonic_time_ns = number * INT64_C(33'000'000);
            const RecordedTime time{static_cast<uint64_t>(frame.header.monotonic_time_ns),
                                    frame.header.monotonic_time_ns};
            if (!writer)
                writer.emplace(descriptor, factsOf(camera, orthogonal),
                               CameraWriter::Options{.name = "camera", .compact = compact}, time.log);
            if (changed) {
                const uint8_t* const image = stCamParam[camera.nIndex].image;
                writer->parameters({{image, image + VQD_IMAGE_BYTES}, hostValuesOf(camera.nIndex)}, time);
            }
            writer->frame(frame, time);
        });
        writer->finish();
        close(descriptor);
        return hashes;
    }

    // What vqd convert makes of it. The profile is out of its reach: all that it needs is in the recording.
    std::vector<size_t> convert(const std::string& options, int parameterSets = 1)
    {
        const std::string command =
            "XDG_DATA_HOME=/nonexistent exec " VQD_TOOL " convert --stream " + file.string() + ' ' + options;
        FILE* const pipe = popen(command.c_str(), "r");
        MessageReader reader(VQD_WIRE_MOST_MESSAGE);
        std::vector<size_t> hashes;
        numbers.clear();
        int sets = 0;
        for (;;) {
            const std::span<uint8_t> space = reader.space();
            const size_t count = fread(space.data(), 1, space.size(), pipe);
            reader.came(count);
            while (const std::optional<Received> message = reader.next()) {
                if (message->prefix.kind == VQD_WIRE_PARAMETERS) {
                    settings = parsedObject(message->text(), "parameters")["settings"];
                    ++sets;
                }
                if (message->prefix.kind == VQD_WIRE_FRAME) {
                    const ReceivedFrame frame = frameIn(message->body);
                    hashes.push_back(hashOf(frame.planes));
                    numbers.push_back(frame.header.sequence);
                    EXPECT_STREQ(frame.header.serial, kSerial);
                }
            }
            if (count == 0)
                break;
        }
        EXPECT_TRUE(reader.empty());
        EXPECT_EQ(pclose(pipe), 0);
        EXPECT_EQ(sets, parameterSets);
        return hashes;
    }

    const std::unique_ptr<sim::Bus> bus = sim::makeMockBus();
    const TemporaryFolder temporary;
    const std::filesystem::path folder = temporary.path();
    const std::filesystem::path file = folder / "session.mcap";
    std::vector<uint64_t> numbers; // of the frames of convert()
    Json settings;                 // its latest ones

private:
    size_t m_camera = 0;
};

const std::vector<std::string> kEverything = {"undistortion=2", "fppn=1", "orthogonal=1", "remove-edge=1",
                                              "depth-range=600,4000"};

TEST_F(Replay, ThreeHundredFramesOfAHostCorrectedCameraWithAProfileAndAChangeEqualTheLiveOnes)
{
    plug("VQD-HT120", 0x871A);
    writeProfileOf(listCameras().front());
    const Script script{300, 151, kEverything, {"undistortion=1", "orthogonal=0", "depth-range=300,2500"}};
    const std::vector<size_t> live = record(script, false);
    ASSERT_EQ(live.size(), 300U);
    EXPECT_EQ(std::set<size_t>(live.begin(), live.end()).size(), 300U); // or equality would prove little

    EXPECT_EQ(convert("", 2), live);
    EXPECT_EQ(numbers.front(), 1U);
    EXPECT_EQ(numbers.back(), 300U);
    EXPECT_EQ(settings["depth-range"], Json({300, 2500}));
    plugRecording();
    EXPECT_EQ(grab(script, [](const auto&...) {}), live);
}

TEST_F(Replay, SettingsOfTheHostCanBeChangedAfterwards)
{
    plug("VQD-HT120", 0x871A);
    const std::vector<size_t> live = record({40, 0, kEverything, {}}, true);
    const auto raw = convert("-s undistortion=0 -s fppn=0 -s orthogonal=0 -s remove-edge=0 -s depth-range=0,15000");
    EXPECT_EQ(settings["undistortion"], 0);
    EXPECT_EQ(convert("--range 11:20 --every 3"), (std::vector<size_t>{live[10], live[13], live[16], live[19]}));
    EXPECT_EQ(numbers, (std::vector<uint64_t>{11, 14, 17, 20}));
    EXPECT_EQ(convert("--range 1.22s:").size(), 3U); // of frames 38, 39 and 40
    plugRecording();
    EXPECT_EQ(grab({40, 0, {"undistortion=0", "fppn=0", "orthogonal=0", "remove-edge=0", "depth-range=0,15000"}, {}},
                   [](const auto&...) {}),
              raw);
    EXPECT_NE(raw, live);
}

TEST_F(Replay, ACameraThatCorrectsItselfIsUndistortedOnly)
{
    plug("VQD-RS110", 0x8720);
    const std::vector<size_t> live = record({30, 16, {"undistortion=3", "remove-edge=1"}, {"undistortion=2"}}, false);
    EXPECT_EQ(convert("", 2), live);
}

} // namespace
