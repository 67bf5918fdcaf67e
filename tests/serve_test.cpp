// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Parts of the server without cameras, sockets or time: configuration, which workers there should be, and who gets
// which frame.
#include <gtest/gtest.h>

#include <cstring>

#include "host/failure.h"
#include "serve/frames.h"
#include "serve/roster.h"

namespace
{

using namespace std::chrono_literals;

std::string refusalOf(const std::string& text)
{
    try {
        configurationFrom(text, "f.json");
        return "taken";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code, kUsage);
        return failure.what();
    }
}

// What went to the worker and to clients.
struct Served {
    Frames frames{[this](uint64_t request, Answer answer) { answers.emplace_back(request, std::move(answer)); }};
    std::vector<std::pair<uint64_t, Answer>> answers;
    std::vector<uint64_t> pulls;
    Frames::Clock::time_point now{1h};

    Served()
    {
        frames.connected([this](uint64_t after) { pulls.push_back(after); }, now);
    }
    void come(uint64_t session, uint64_t sequence)
    {
        vqd_wire_frame header{};
        header.session = session;
        header.sequence = sequence;
        header.width = 4;
        header.height = 2;
        header.plane_bytes = 32;
        Bytes body;
        const Bytes planes(32, 7);
        appendFrame(body, header, {planes});
        vqd_wire_prefix prefix{};
        prefix.kind = VQD_WIRE_FRAME;
        frames.came({prefix, body}, now);
    }
    void want(uint64_t request, std::optional<uint64_t> session, uint64_t after)
    {
        frames.want({request, session, after, false}, now);
    }
    // "1:5 2:5", requests with the frames that they got, or 204
    std::string told()
    {
        std::string text;
        for (const auto& [request, answer] : answers) {
            uint64_t sequence = 204;
            if (answer.hasFrame())
                memcpy(&sequence, answer.body->data() + offsetof(vqd_wire_frame, sequence), sizeof sequence);
            text += (text.empty() ? "" : " ") + std::to_string(request) + ':' + std::to_string(sequence);
        }
        answers.clear();
        return text;
    }
};

} // namespace

TEST(Configuration, IsTakenAsItStands)
{
    const Configuration all = configurationFrom(R"({
        "cameras": {
            "24061100000001": {"name": "left", "settings": {"depth-range": [300, 4000], "offset": -5, "temperature": 31.5}},
            "1-2.3": {"record": true, "show": false, "publish": {"name": "right", "images": "rect", "points": true}},
            "1-2.4": {"publish": false}
        },
        "publish": {"depth": "depth"}, "unknown": "ignore", "recordings": "/var/lib/vqd/recordings"})",
                                                "f.json");
    const CameraWish left = all.cameras.at("24061100000001"), right = all.cameras.at("1-2.3");
    EXPECT_EQ(left.name, "left");
    EXPECT_EQ(left.settings, (std::vector<std::string>{"offset=-5", "depth-range=300,4000"}));
    EXPECT_TRUE(left.show && !left.record && !right.show && right.record && !all.showsUnknown);
    EXPECT_EQ(all.recordings, "/var/lib/vqd/recordings");
    EXPECT_EQ(publisherWords("/s", right.publish->how),
              (std::vector<std::string>{"vqd-ros", "/s", "--name", "right", "--images", "rect", "--points"}));
    EXPECT_EQ(publisherWords("/s", all.publish.how), (std::vector<std::string>{"vqd-ros", "/s", "--depth", "depth"}));
    EXPECT_TRUE(all.publish.wanted && !left.publish && !all.cameras.at("1-2.4").publish->wanted);
    const Configuration none = configurationFrom("{\"publish\": false}", "f.json");
    EXPECT_TRUE(none.showsUnknown && publishesAny(all) && !publishesAny(none));
    EXPECT_TRUE(publishesAny(configurationFrom(R"({"cameras": {"1-2": {"publish": true}}})", "f.json")));
}

TEST(Configuration, IsRefusedWithLineAndKey)
{
    const struct {
        const char *text, *start;
    } cases[] = {
        {"{\n\"cameras\": []}", "f.json:2: \"cameras\" is not an object"},
        {"{\n\n\"camera\": {}}",
         "f.json:3: \"camera\" is unknown here; known are cameras, unknown, recordings, publish"},
        {"{\"cameras\": {\n\"left\": {}}}", "f.json:2: \"left\" is neither a serial number nor a port"},
        {"{\"cameras\": {\n\"1-2\": {\n\"nam\": 1}}}", "f.json:3: \"nam\" is unknown here"},
        {"{\"cameras\": {\"1-2\": {\"name\":\n\"\"}}}", "f.json:1: \"name\" is not a text"},
        {"{\"cameras\": {\"1-2\": {\n\"name\": \"a\\u001b[2J\"}}}", "f.json:2: \"name\" has characters"},
        {"{\"cameras\": {\"1-2\": {\n\"record\": 1}}}", "f.json:2: \"record\" is neither true nor false"},
        {"{\"cameras\": {\"1-2\": {\"settings\": {\n\n\"ofset\": 1}}}}",
         "f.json:3: \"ofset\" is refused: there is no setting 'ofset'"},
        {"{\"cameras\": {\"1-2\": {\"settings\": {\n\"offset\": 900}}}}",
         "f.json:2: \"offset\" is refused: offset takes -255"},
        {"{\"cameras\": {\"1-2\": {\"settings\": {\n\"illumination\": 0}}}}", "f.json:2: \"illumination\" is refused"},
        {"{\"cameras\": {\"1-2\": {},\n\"1-2\": {}}}", "f.json:2: \"1-2\" stands here a second time"},
        {"{\"cameras\": {\"1-2\": {\"name\": \"a\"},\n\"1-3\": {\"name\": \"a\"}}}",
         "f.json:2: \"name\" is also the name of 1-2"},
        {"{\"unknown\":\n\"hide\"}", "f.json:1: \"unknown\" is neither \"show\" nor \"ignore\""},
        {"{\n\"publish\": 1}", "f.json:2: \"publish\" is neither true nor false nor an object"},
        {"{\"publish\": {\n\"name\": \"left\"}}",
         "f.json:2: \"name\" is unknown here; known are images, depth, points"},
        {"{\"cameras\": {\"1-2\": {\"publish\": {\n\"name\": \"1left\"}}}}",
         "f.json:2: \"name\" is refused: a name in ROS"},
        {"{\"cameras\": {\"1-2\": {\"publish\": {\n\"images\": \"bent\"}}}}",
         "f.json:2: \"images\" is neither \"raw\" nor \"rect\""},
        {"{\"cameras\": {\"1-2\": {\"publish\": {\"name\": \"a\"}},\n\"1-3\": {\"publish\": {\"name\": \"a\"}}}}",
         "f.json:2: \"name\" is also the name under which 1-2 is published"},
        {"{\"cameras\": {\"1-2\": {\n\"record\": true}}}", "f.json:2: \"record\" needs a folder"},
        {"{\"cameras\": {\n\"2406110000000A\": {}}}", "f.json:2: \"2406110000000A\" is neither a serial number"},
        {"{\n\"recordings\": \"here\"}", "f.json:2: \"recordings\" is not a folder from the root on"},
        {"{\n\"cameras\": {},\n}", "f.json: parse error at line 3"},
        {"[]", "f.json is not a JSON object"},
        {"", "f.json: "},
    };
    for (const auto& one : cases)
        EXPECT_TRUE(refusalOf(one.text).starts_with(one.start)) << refusalOf(one.text);
}

TEST(Roster, NamesACameraByWhatFindsItAgain)
{
    using Names = std::vector<std::string>;
    Configuration configuration;
    const SeenCamera first{"1-1", "24061100000001"}, second{"1-2", "24061100000002"}, twin{"1-3", "24061100000001"},
        zeros{"1-4", "00000000000000"}, unread{"1-5", ""};
    EXPECT_EQ(workersFor(configuration, std::vector{first, second}), (Names{"24061100000001", "24061100000002"}));
    EXPECT_EQ(workersFor(configuration, std::vector{first, second, twin}), (Names{"1-1", "24061100000002", "1-3"}));
    EXPECT_EQ(workersFor(configuration, std::vector{zeros, unread}), (Names{"1-4", "1-5"}));
    configuration.cameras = {{"1-2", {}}, {"24061100000001", {}}};
    EXPECT_EQ(workersFor(configuration, std::vector{first, second, zeros}), (Names{"1-2", "24061100000001", "1-4"}));
    configuration.showsUnknown = false;
    EXPECT_EQ(workersFor(configuration, std::vector{zeros}),
              (Names{"1-2", "24061100000001"})); // also while they are not there
}

TEST(Frames, TheNewestGoesToAllWhoWaitAndNobodyGetsAnOldOne)
{
    Served served;
    served.want(1, {}, 0);
    served.want(2, {}, 0);
    EXPECT_EQ(served.pulls, (std::vector<uint64_t>{0})); // one for both
    served.come(77, 5);
    EXPECT_EQ(served.told(), "1:5 2:5");
    served.want(3, 77, 5);
    served.want(4, 77, 4); // late, and frame 5 is the newest that there is
    EXPECT_EQ(served.told(), "4:5");
    served.come(77, 6);
    EXPECT_EQ(served.told(), "3:6");

    served.now += 10s; // nobody asks, so frames do not come here
    served.pulls.clear();
    served.want(5, 77, 5);
    EXPECT_EQ(served.told(), ""); // frame 6 is old
    EXPECT_EQ(served.pulls, (std::vector<uint64_t>{5}));
    served.come(77, 306);
    EXPECT_EQ(served.told(), "5:306");
}

TEST(Frames, ASessionBeginsAnewAndWaitingEnds)
{
    Served served;
    served.want(1, 77, 900);
    served.come(77, 6);
    EXPECT_EQ(served.told(), ""); // it has seen frame 900
    served.frames.disconnected();
    EXPECT_EQ(served.frames.giveUp(served.now), served.now + 1s);
    served.pulls.clear();
    served.frames.connected([&](uint64_t after) { served.pulls.push_back(after); }, served.now);
    EXPECT_EQ(served.pulls, (std::vector<uint64_t>{0})); // for the one that has waited since before
    served.want(2, 77, 900);
    served.come(78, 1);
    EXPECT_EQ(served.told(), "1:1 2:1"); // 900 counted in another session
    served.want(3, 78, 1);
    served.now += 999ms;
    served.frames.giveUp(served.now);
    EXPECT_EQ(served.told(), "");
    served.now += 1ms;
    served.frames.giveUp(served.now);
    EXPECT_EQ(served.told(), "3:204");
}
