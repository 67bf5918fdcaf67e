// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The recorder without a camera: what waits, what the files are called, and what is in them.
#include <algorithm>
#include <csignal>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <sys/resource.h>
#include <unistd.h>

#include "recording/layout.h"
#include "recording/mcap_reader.h"
#include "recording/take.h"
#include "support/temporary_folder.h"

namespace
{

using namespace std::chrono_literals;
constexpr int64_t kMs = 1'000'000;

template <typename Work> std::string refusal(const Work& work)
{
    try {
        work();
        return "";
    } catch (const Failure& failure) {
        return failure.what();
    }
}

// A frame in which every pixel is known, as a camera of 30 frames a second sends it.
struct TestFrame {
    explicit TestFrame(uint64_t sequence, HostTime began = {}) : raw(VQD_FRAME_BYTES)
    {
        for (size_t i = 0; i < raw.size(); ++i)
            raw[i] = static_cast<uint8_t>(i % 512 == 0 ? i / 512 : sequence);
        library.depth.fill(static_cast<uint16_t>(1000 + sequence));
        const int64_t passed = static_cast<int64_t>(sequence) * 33 * kMs;
        header.sequence = sequence;
        header.real_time_ns = began.real + passed;
        header.monotonic_time_ns = began.monotonic + passed;
    }
    FrameView view() const { return {raw, library, header}; }

    Bytes raw;
    DepthFrame library;
    vqd_wire_frame header{};
};

std::shared_ptr<RecordedParameters> parameters(uint8_t mark)
{
    return std::make_shared<RecordedParameters>(RecordedParameters{Bytes(VQD_IMAGE_BYTES, mark), {}});
}

TEST(RecordQueue, HasRoomForSoManyFramesAndCountsTheOthers)
{
    RecordQueue queue(false, 3 * VQD_FRAME_BYTES);
    const auto take = [&] { return std::get<RecordQueue::Frame>(*queue.next(0ms)); };
    for (uint64_t i = 1; i <= 5; ++i) {
        if (i == 5)
            queue.change(parameters(5)); // belongs to a frame that finds no room
        queue.add(TestFrame(i).view());
    }
    EXPECT_EQ(queue.notRecorded(), 2U);
    EXPECT_EQ(queue.bytes(), 3U * VQD_FRAME_BYTES);
    EXPECT_EQ(take()->header.sequence, 1U);
    queue.add(TestFrame(6).view());
    for (uint64_t i = 2; i <= 3; ++i)
        EXPECT_EQ(take()->notRecorded, 0U) << i;
    const RecordQueue::Frame sixth = take();
    EXPECT_EQ(sixth->header.sequence, 6U);
    EXPECT_EQ(sixth->notRecorded, 2U);
    ASSERT_NE(sixth->changed, nullptr);
    EXPECT_EQ(sixth->changed->image[0], 5);
    EXPECT_FALSE(queue.next(0ms));
}

TEST(RecordQueue, GivesWhatItHasAfterTheCloseUnlessThereIsNoTime)
{
    RecordQueue queue(false, 10 * VQD_FRAME_BYTES);
    for (uint64_t i = 1; i <= 3; ++i)
        queue.add(TestFrame(i).view());
    queue.close();
    queue.add(TestFrame(4).view());
    EXPECT_TRUE(queue.next(0ms));
    EXPECT_FALSE(queue.ended());
    queue.dropAt(std::chrono::steady_clock::now());
    EXPECT_FALSE(queue.next(0ms));
    EXPECT_TRUE(queue.ended());
    EXPECT_EQ(queue.notRecorded(), 2U);
}

TEST(LogClock, GoesOnEvenlyWhenTheClockIsSet)
{
    LogClock clock;
    const struct {
        int64_t real, monotonic, log;
    } cases[] = {
        {1'000'000, 500, 1'000'000}, //
        {1'000'033, 533, 1'000'033}, //
        {400'066, 566, 1'000'066},   // set back by ten minutes
        {400'099, 599, 1'000'099},   //
        {400'090, 590, 1'000'099},   // an event that comes late
        {9'000'132, 632, 1'000'132}, // and far ahead
        {9'000'165, 665, 1'000'165},
    };
    for (const auto& c : cases)
        EXPECT_EQ(clock.at({c.real * kMs, c.monotonic * kMs}), static_cast<uint64_t>(c.log * kMs)) << c.monotonic;
}

TEST(RecordRequest, RefusesWhatItDoesNotUnderstand)
{
    const auto asked = [](const char* text) { return refusal([&] { recordRequestFrom(Json::parse(text)); }); };
    EXPECT_EQ(asked(R"({"do": "record", "name": "left.2_a-b", "topics": "left", "part": 2, "compact": true,
                        "images": false, "frames": 1, "seconds": 0.5, "split-bytes": 1000000, "split-seconds": 1})"),
              "");
    for (const char* wrong : {R"({})",
                              R"({"name": ""})",
                              R"({"name": "."})",
                              R"({"name": "../a"})",
                              R"({"name": "a/b"})",
                              R"({"name": ".a"})",
                              R"({"name": "a b"})",
                              R"({"name": "-a"})",
                              R"({"name": "a\u0000"})",
                              R"({"name": 1})",
                              R"({"name": "a", "folder": "/tmp"})",
                              R"({"name": "a", "frames": 0})",
                              R"({"name": "a", "frames": 1.5})",
                              R"({"name": "a", "frames": -1})",
                              R"({"name": "a", "part": 1e9})",
                              R"({"name": "a", "seconds": 0})",
                              R"({"name": "a", "seconds": "9"})",
                              R"({"name": "a", "split-bytes": 10})",
                              R"({"name": "a", "compact": 1})",
                              R"({"name": "a", "topics": "2a"})",
                              R"({"name": "a", "topics": "a/b"})",
                              R"({"name": "a", "compact": true, "compress": false})"})
        EXPECT_NE(asked(wrong), "") << wrong;
    EXPECT_NE(asked(("{\"name\": \"" + std::string(101, 'a') + "\"}").c_str()), "");
}

TEST(HostValues, AreTheSameBitsAfterTheJson)
{
    HostValues values;
    values.minDepth = -5;
    values.depthGap = 65535;
    values.scatterScale = 1.6e-6F;
    values.intrinsic = {204.123F, 1 / 3.F, 160, std::numeric_limits<float>::max()};
    values.distortion = {-0.346F, 1e-40F, 0.1F, 0, 0, 0};
    const Json json = Json::parse(hostValuesJson(values).dump());
    EXPECT_EQ(hostValuesFrom(json), values);
    for (const char* patch :
         {R"({"schema": "vqd.recorded-parameters/2"})", R"({"depth-gap": 65536})", R"({"depth-gap": 1.5})",
          R"({"intrinsic": [1, 2, 3]})", R"({"intrinsic": [1, 2, 3, null]})", R"({"intrinsic": [1, 2, 3, 1e300]})",
          R"({"fppn": null})", R"({"min-depth": 1e18})"}) {
        Json wrong = json;
        wrong.update(Json::parse(patch));
        EXPECT_NE(refusal([&] { hostValuesFrom(wrong); }), "") << patch;
    }
    EXPECT_NE(refusal([] { hostValuesFrom(Json::array()); }), "");
}

// A message of a file, with the frame that it holds or belongs to.
struct Found {
    std::string topic;
    uint64_t log;
    msg::std_msgs::Header header;
    uint64_t sequence = 0;
    uint32_t flags = 0;
    Bytes raw; // of a frame
    std::string text;
};

Bytes unpacked(const msg::vqd_msgs::RawFrame& frame)
{
    Bytes raw(frame.data.begin(), frame.data.end());
    if (!frame.packed) {
        raw.insert(raw.end(), frame.planes.begin(), frame.planes.end());
        return raw;
    }
    std::vector<uint16_t> planes(2 * VQD_PIXELS);
    Packing().unpack(frame.planes, {std::span(planes).first(VQD_PIXELS), std::span(planes).last(VQD_PIXELS)});
    raw.resize(VQD_FRAME_BYTES);
    memcpy(raw.data() + 512, planes.data(), planes.size() * 2);
    return raw;
}

class ATake : public testing::Test
{
protected:
    void begin(Json request = Json::object(), uint64_t keepFree = 0)
    {
        request["name"] = "a";
        CameraFacts facts;
        facts.serial = "24061100000001";
        facts.product = "VQD-HT120";
        facts.hostCorrected = true;
        facts.eeprom = Bytes(128, 0xEE);
        take = std::make_unique<Take>(Take::Options{folder, keepFree, recordRequestFrom(request), facts, 77,
                                                    [this](const Json&) { told(); }, [this] { return stops.load(); }},
                                      parameters(1));
        began = hostTime();
    }
    void add(uint64_t first, uint64_t last)
    {
        for (uint64_t i = first; i <= last; ++i) {
            while (take->queue().bytes() > 8U << 20) // a loaded machine drops no frame of a test
                std::this_thread::sleep_for(1ms);
            take->queue().add(TestFrame(i, began).view());
        }
    }
    Json end()
    {
        take->queue().close();
        while (!take->ended())
            std::this_thread::sleep_for(1ms);
        return take->state();
    }
    std::vector<std::string> files() const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder))
            names.push_back(entry.path().filename());
        std::ranges::sort(names);
        return names;
    }
    std::vector<Found> read(const std::string& name) const
    {
        mcap::Reader reader(folder / name);
        EXPECT_EQ(reader.damage(), "");
        std::vector<Found> all;
        mcap::Cursor cursor(reader);
        while (const auto message = cursor.next()) {
            Found found{reader.channels().at(message->channel).topic, message->logTime, {}, 0, 0, {}, ""};
            if (found.topic.ends_with(kFrameHeaderTopic)) {
                msg::vqd_msgs::FrameHeader header;
                msg::fromCdr(message->data, header);
                found.sequence = header.sequence;
                found.flags = header.flags;
                found.raw.assign(header.data.begin(), header.data.end());
                found.header = header.header;
            } else if (found.topic.ends_with(kRawFrameTopic)) {
                msg::vqd_msgs::RawFrame frame;
                msg::fromCdr(message->data, frame);
                found.sequence = frame.sequence;
                found.flags = frame.flags;
                found.raw = unpacked(frame);
                found.header = frame.header;
            } else if (found.topic.ends_with("image_raw") || found.topic.ends_with("image_rect")) {
                msg::sensor_msgs::Image image;
                msg::fromCdr(message->data, image);
                found.raw = image.data;
                found.text = image.encoding;
            } else if (found.topic.ends_with(kParametersTopic)) {
                msg::vqd_msgs::Parameters change;
                msg::fromCdr(message->data, change);
                found.raw.assign(change.image.begin(), change.image.end());
            } else if (found.topic.ends_with(kEventsTopic)) {
                msg::vqd_msgs::Event event;
                msg::fromCdr(message->data, event);
                found.text = event.event + ' ' + event.json;
            }
            all.push_back(found);
        }
        return all;
    }
    // The frames, numbered from `first` on, each of them whole, whatever form they have; and how many.
    size_t wholeFrames(const std::vector<Found>& all, uint64_t first) const
    {
        size_t count = 0;
        for (size_t i = 0; i < all.size(); ++i) {
            if (all[i].sequence == 0)
                continue;
            Bytes raw = all[i].raw;
            if (all[i].topic.ends_with(kFrameHeaderTopic))
                for (const size_t plane : {i + 1, i + 2})
                    raw.insert(raw.end(), all.at(plane).raw.begin(), all.at(plane).raw.end());
            EXPECT_EQ(all[i].sequence, first + count);
            EXPECT_TRUE(raw == TestFrame(all[i].sequence).raw) << all[i].sequence;
            ++count;
        }
        return count;
    }

    const TemporaryFolder temporary;
    const std::filesystem::path folder = temporary.path();
    HostTime began{};
    std::function<void()> told = [] {}; // of the thread that writes, which waits for it as for a disk
    std::atomic<bool> stops = false;    // the process is to end
    std::unique_ptr<Take> take;
};

TEST_F(ATake, KeepsFramesBitForBitWithTheParametersThatHold)
{
    for (const char* request :
         {R"({"images": false})", R"({"images": false, "compress": false})", R"({"compact": true})"}) {
        if (strstr(request, "compact") != nullptr && Packing::missing() != nullptr)
            continue;
        begin(Json::parse(request));
        add(1, 3);
        take->queue().change(parameters(2));
        add(4, 5);
        const Json state = end();
        EXPECT_EQ(state["state"], "done");
        EXPECT_EQ(state["frames"], 5);
        EXPECT_EQ(state["bytes"], std::filesystem::file_size(folder / "a.mcap"));
        EXPECT_EQ(files(), std::vector<std::string>{"a.mcap"});
        const std::vector<Found> all = read("a.mcap");
        EXPECT_EQ(wholeFrames(all, 1), 5U);
        std::string order; // of parameters and frames
        for (const Found& found : all) {
            order += found.topic.ends_with(kParametersTopic) ? std::string("P") + std::to_string(found.raw[9]) : "";
            order += found.sequence > 0 ? std::to_string(found.sequence) : "";
            EXPECT_EQ(found.topic.find("/depth/image_raw"), std::string::npos) << "a plane along the ray is no depth";
        }
        EXPECT_EQ(order, "P1123P245") << request;
        mcap::Reader reader(folder / "a.mcap");
        EXPECT_EQ(reader.read(reader.metadata().at(0)).at(kSessionKey), "77");
        EXPECT_EQ(reader.attachments().at(0).name, "24061100000001/eeprom.bin");
        EXPECT_EQ(reader.read(reader.attachments().at(0)), Bytes(128, 0xEE));
        std::filesystem::remove(folder / "a.mcap");
    }
}

TEST_F(ATake, HasTheLibrarysImagesOfHostCorrectedModelsUnlessToldOtherwise)
{
    begin();
    add(1, 1);
    end();
    const std::vector<Found> all = read("a.mcap");
    const auto depth = std::ranges::find(all, "/vqd_24061100000001/depth/image_rect", &Found::topic);
    ASSERT_NE(depth, all.end());
    EXPECT_EQ(depth->text, "16UC1");
    EXPECT_EQ(depth->raw[0] + 256 * depth->raw[1], 1001);
    EXPECT_EQ(std::ranges::count(all, "/vqd_24061100000001/depth/camera_info", &Found::topic), 1);
}

// A camera's planes are noise. An image that the library has left as it was is found again, and costs next to nothing.
TEST_F(ATake, ImagesThatRepeatTheRawPlanesTakeLittleRoom)
{
    if (mcap::ChunkPacking::missing() != nullptr)
        return;
    uint64_t bytes[2]{};
    for (const bool images : {false, true}) {
        begin({{"images", images}});
        std::minstd_rand noise(1);
        for (uint64_t i = 1; i <= 6; ++i) {
            TestFrame frame(i, began);
            std::ranges::generate(frame.library.amplitude, std::ref(noise));
            std::ranges::generate(frame.library.depth, std::ref(noise));
            const size_t plane = sizeof frame.library.amplitude;
            memcpy(frame.raw.data() + 512, frame.library.amplitude.data(), plane);
            memcpy(frame.raw.data() + 512 + plane, frame.library.depth.data(), plane);
            take->queue().add(frame.view());
        }
        bytes[images] = end()["bytes"];
        std::filesystem::remove(folder / "a.mcap");
    }
    EXPECT_LT(bytes[true], bytes[false] + bytes[false] / 10);
}

TEST_F(ATake, BeginsNewFilesThatStandForThemselvesAndReplacesNone)
{
    std::ofstream(folder / "a_002.mcap") << "somebody else's";
    begin(Json::parse(R"({"images": false, "split-seconds": 1})"));
    add(1, 70); // a second is 31 of them
    const Json state = end();
    EXPECT_EQ(files(), (std::vector<std::string>{"a.mcap", "a_002.mcap", "a_003.mcap", "a_004.mcap"}));
    EXPECT_EQ(std::filesystem::file_size(folder / "a_002.mcap"), 15U);
    EXPECT_EQ(state["part"], 4);
    EXPECT_EQ(wholeFrames(read("a.mcap"), 1), 31U);
    const std::vector<Found> second = read("a_003.mcap");
    EXPECT_EQ(wholeFrames(second, 32), 31U);
    EXPECT_TRUE(second[0].topic.ends_with(kParametersTopic));
    EXPECT_EQ(wholeFrames(read("a_004.mcap"), 63), 8U);
    EXPECT_NE(refusal([this] { begin(); }).find("a.mcap exists, and a recording replaces nothing"), std::string::npos);
}

TEST_F(ATake, EndsAtItsLimits)
{
    begin(Json::parse(R"({"images": false, "frames": 3})"));
    add(1, 9);
    EXPECT_EQ(end()["frames"], 3);
    std::filesystem::remove(folder / "a.mcap");
    begin(Json::parse(R"({"images": false, "seconds": 0.3})"));
    add(1, 20);
    EXPECT_EQ(end()["frames"], 11); // the last one is 330 ms behind the first
}

TEST_F(ATake, ThatEndsWithItsSessionIsCompleteAndSaysSo)
{
    begin(Json::parse(R"({"images": false, "frames": 30})"));
    add(1, 3);
    take->end();
    const Json state = end();
    EXPECT_EQ(state["state"], "cut");
    EXPECT_EQ(wholeFrames(read("a.mcap"), 1), 3U);
}

// Nobody else ends it when the loop waits for a camera that does not answer.
TEST_F(ATake, CompletesTheFileByItselfWhenTheProcessIsToEnd)
{
    begin(Json::parse(R"({"images": false})"));
    add(1, 3);
    stops = true;
    while (!take->ended())
        std::this_thread::sleep_for(1ms);
    EXPECT_EQ(take->state()["state"], "cut");
    EXPECT_EQ(wholeFrames(read("a.mcap"), 1), 3U);
}

TEST_F(ATake, WritesWhatWaitsForASlowDiskAlsoBehindItsTime)
{
    std::atomic<bool> isBegun = false;
    told = [&] {
        if (!isBegun.exchange(false))
            return;
        began = hostTime();
        add(1, 20);
        std::this_thread::sleep_for(1200ms);
    };
    begin(Json::parse(R"({"images": false, "seconds": 1})"));
    isBegun = true;
    while (!take->ended() && take->state()["frames"] < 20)
        std::this_thread::sleep_for(1ms);
    const Json state = end();
    EXPECT_EQ(state["frames"], 20);
    uint64_t last = 0;
    for (const Found& found : read("a.mcap")) {
        if (found.sequence == 0)
            continue;
        EXPECT_GT(found.log, last) << "frame " << found.sequence << " has no time of its own";
        last = found.log;
    }
}

TEST_F(ATake, TellsFramesThatHadNoRoomAndThoseThatNeverCame)
{
    begin(Json::parse(R"({"images": false})"));
    TestFrame late(1, began);
    late.header.dropped = 4;
    late.header.flags = VQD_WIRE_REOPENED;
    take->queue().add(late.view());
    const Json state = end();
    EXPECT_EQ(state["dropped"], 4);
    const std::vector<Found> all = read("a.mcap");
    const auto event = std::ranges::find(all, "/vqd_24061100000001/events", &Found::topic);
    ASSERT_NE(event, all.end());
    EXPECT_TRUE(event->text.starts_with("dropped {") && event->text.ends_with("\"frames\":4}")) << event->text;
    EXPECT_EQ(std::ranges::find(all, uint64_t{1}, &Found::sequence)->flags, uint32_t{kFrameReopened});
}

TEST_F(ATake, StampsAreTheClocksAndTimesNeverGoBack)
{
    begin(Json::parse(R"({"images": false})"));
    add(1, 2);
    began.real -= 3600 * 1000 * kMs;
    add(3, 4);
    end();
    uint64_t last = 0;
    std::vector<int64_t> stamps;
    for (const Found& found : read("a.mcap")) {
        EXPECT_GE(found.log, last);
        last = found.log;
        if (found.sequence > 0)
            stamps.push_back(found.header.stamp.sec);
    }
    EXPECT_NEAR(static_cast<double>(stamps.at(1) - stamps.at(2)), 3600, 1);
    EXPECT_NEAR(static_cast<double>(last), static_cast<double>(began.real + 3600'132 * kMs), 1e6);
}

TEST_F(ATake, AFullDiskEndsItWithWhatFits)
{
    EXPECT_NE(refusal([this] { begin({}, std::numeric_limits<uint64_t>::max()); }).find("are to stay free"),
              std::string::npos);
    EXPECT_EQ(files(), std::vector<std::string>());

    signal(SIGXFSZ, SIG_IGN);
    begin(Json::parse(R"({"images": false, "compress": false})"));
    constexpr rlim_t kMost = 3'500'000; // in the middle of a chunk, each of which has four frames
    const rlimit full{kMost, RLIM_INFINITY}, free{RLIM_INFINITY, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &full);
    add(1, 30);
    const Json state = end();
    setrlimit(RLIMIT_FSIZE, &free);
    EXPECT_EQ(state["state"], "failed");
    EXPECT_NE(state["error"].get<std::string>().find("cannot be written"), std::string::npos) << state;
    EXPECT_EQ(files(), std::vector<std::string>{"a.mcap"});
    EXPECT_GE(wholeFrames(read("a.mcap"), 1), 8U);
    EXPECT_EQ(state["frames"], wholeFrames(read("a.mcap"), 1));
    EXPECT_EQ(state["files"].size(), 1U);
}

TEST_F(ATake, LeavesNothingWhenNoFrameCame)
{
    begin();
    EXPECT_EQ(end()["files"].size(), 0U);
    EXPECT_EQ(files(), std::vector<std::string>());
    std::ofstream(folder / "a.mcap.part") << "of a recorder that was killed";
    EXPECT_NE(refusal([this] { begin(); }).find("was killed"), std::string::npos);
    std::filesystem::remove(folder / "a.mcap.part");
    std::filesystem::create_symlink("/dev/null", folder / "a.mcap.part");
    EXPECT_NE(refusal([this] { begin(); }), "");
}

TEST_F(ATake, ANameThatIsTakenMeanwhileIsLeftAlone)
{
    begin(Json::parse(R"({"images": false})"));
    add(1, 1);
    std::ofstream(folder / "a.mcap") << "somebody else's";
    const Json state = end();
    EXPECT_EQ(state["state"], "failed");
    EXPECT_NE(state["error"].get<std::string>().find("does not get its name"), std::string::npos);
    EXPECT_EQ(std::filesystem::file_size(folder / "a.mcap"), 15U);
    EXPECT_EQ(wholeFrames(read("a.mcap.part"), 1), 1U);
}

} // namespace
