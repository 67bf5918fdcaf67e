// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The client of workers against another end that is slow, cuts, lies or ends. Where both ends share this thread, a
// time-out of 0 lets them take turns, and nothing depends on how fast this machine is.
#include <fcntl.h>
#include <filesystem>

#include <gtest/gtest.h>

extern "C" {
#include "worker/client/client.h"
}
#include "worker/client/json_member.h"

#include "support/fake_worker.h"

namespace
{

constexpr int kLong = 60000; // never waited for

struct Folder {
    std::filesystem::path path;
    Folder()
    {
        char name[] = "/tmp/vqd-client-XXXXXX";
        path = mkdtemp(name);
    }
    ~Folder() { std::filesystem::remove_all(path); }
    std::string socket(const std::string& name = "worker.sock") const { return path / name; }
};

// A client whose other end is `m_peer`. It has said its state.
class Client : public testing::Test
{
protected:
    void SetUp() override
    {
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        m_client = vqdc_client_new((m_folder.path / "gone").c_str());
        ASSERT_EQ(fcntl(ends[0], F_SETFL, O_NONBLOCK), 0);
        vqdc_adopt(m_client, ends[0]);
        m_peer = ends[1];
        fake::put(m_peer, fake::state());
    }
    void TearDown() override
    {
        vqd_client_close(m_client);
        endPeer();
    }
    void endPeer()
    {
        if (m_peer >= 0)
            close(m_peer);
        m_peer = -1;
    }

    int next() { return vqd_client_next(m_client, 0, &m_frame, &m_error); }
    int latest() { return vqd_client_latest(m_client, 0, &m_frame, &m_error); }

    // Makes the client ask for a frame, and returns the number of its pull.
    uint32_t pull(uint64_t after)
    {
        EXPECT_EQ(next(), VQD_CLIENT_TIMEOUT);
        const auto asked = fake::take(m_peer);
        EXPECT_EQ(asked->prefix.kind, VQD_WIRE_PULL);
        EXPECT_EQ(asked->after(), after);
        return asked->prefix.request;
    }

    Folder m_folder;
    vqd_client* m_client = nullptr;
    int m_peer = -1;
    vqd_client_frame m_frame{};
    vqd_client_error m_error{};
};

TEST_F(Client, DeliversAFrameThatTrickles)
{
    const uint32_t number = pull(0);
    const std::string bytes =
        fake::Frame{.session = 9, .sequence = 5, .flags = VQD_WIRE_REOPENED | VQD_WIRE_PROFILE}.answer(number);
    for (size_t at = 0, piece = 1; at < bytes.size(); at += piece, piece = piece % 61 + 1) {
        ASSERT_EQ(next(), VQD_CLIENT_TIMEOUT) << "after " << at << " bytes";
        fake::put(m_peer, bytes.substr(at, piece));
    }
    ASSERT_EQ(next(), VQD_CLIENT_OK);
    EXPECT_STREQ(m_frame.serial, "24061100000001");
    EXPECT_EQ(m_frame.session, 9u);
    EXPECT_EQ(m_frame.sequence, 5u);
    EXPECT_EQ(m_frame.real_time_ns, 1007);
    EXPECT_EQ(m_frame.monotonic_time_ns, 1000);
    EXPECT_EQ(m_frame.stamp_ms, 40);
    EXPECT_EQ(m_frame.count, 105u);
    EXPECT_EQ(m_frame.temperature, 36.5);
    EXPECT_EQ(m_frame.flags, uint32_t{VQD_CLIENT_FRAME_REOPENED | VQD_CLIENT_FRAME_PROFILE});
    EXPECT_EQ(m_frame.dropped, 2u);
    EXPECT_EQ(m_frame.missed, 0u);
    ASSERT_EQ(m_frame.width, 32u);
    ASSERT_EQ(m_frame.height, 3u);
    const auto held = m_frame;
    // The planes stay while the next frame is on its way.
    const std::string other = fake::Frame{.session = 9, .sequence = 6}.answer(pull(5));
    fake::put(m_peer, other.substr(0, other.size() - 1));
    EXPECT_EQ(next(), VQD_CLIENT_TIMEOUT);
    for (uint16_t i = 0; i < 96; ++i)
        ASSERT_TRUE(held.amplitude[i] == i && held.depth[i] == i + 5) << i;
}

TEST_F(Client, CountsWhatItDidNotAskForInTime)
{
    for (const auto& [sequence, missed] : {std::pair(3, 0), std::pair(4, 0), std::pair(9, 4)}) {
        const uint32_t number = pull(m_frame.sequence);
        fake::put(m_peer, fake::Frame{.sequence = static_cast<uint64_t>(sequence)}.answer(number));
        ASSERT_EQ(next(), VQD_CLIENT_OK);
        EXPECT_EQ(m_frame.missed, static_cast<uint64_t>(missed));
    }
}

TEST_F(Client, LatestNeverDeliversAnAnswerToAnEarlierCall)
{
    fake::put(m_peer, fake::Frame{.sequence = 3}.answer(pull(0)));
    ASSERT_EQ(latest(), VQD_CLIENT_TIMEOUT) << "the frame may have waited for long, so another one is asked for";
    auto asked = fake::take(m_peer);
    EXPECT_EQ(asked->after(), 0u);
    fake::put(m_peer, fake::Frame{.sequence = 8}.answer(asked->prefix.request));
    ASSERT_EQ(next(), VQD_CLIENT_OK);
    EXPECT_EQ(m_frame.sequence, 8u);

    const uint32_t number = pull(8);
    ASSERT_EQ(latest(), VQD_CLIENT_OK) << "nothing newer has come";
    EXPECT_EQ(m_frame.sequence, 8u);
    EXPECT_EQ(m_frame.depth[0], 8);
    fake::put(m_peer, fake::Frame{.sequence = 9}.answer(number));
    ASSERT_EQ(latest(), VQD_CLIENT_TIMEOUT);
    asked = fake::take(m_peer);
    fake::put(m_peer, fake::Frame{.sequence = 9}.answer(asked->prefix.request));
    ASSERT_EQ(latest(), VQD_CLIENT_TIMEOUT) << "as above";
    asked = fake::take(m_peer);
    fake::put(m_peer, fake::Frame{.sequence = 8}.answer(asked->prefix.request));
    ASSERT_EQ(next(), VQD_CLIENT_TIMEOUT) << "8 was delivered before";
    EXPECT_EQ(fake::take(m_peer)->after(), 8u);
}

TEST_F(Client, RefusesWhatNoWorkerSends)
{
    const auto changed = [](std::string bytes, size_t at, const std::string& by) {
        return bytes.replace(at, by.size(), by);
    };
    const std::string frame = fake::Frame{.sequence = 5}.body();
    const auto framed = [](const std::string& body) { return fake::message(VQD_WIRE_FRAME, body, 1); };
    const struct {
        const char* what;
        std::string bytes;
        int result;
        const char* said;
    } cases[] = {
        {"an end", framed(frame), VQD_CLIENT_LOST, "ended the connection"},
        {"a cut prefix", fake::state().substr(0, 15), VQD_CLIENT_LOST, "within a message"},
        {"a cut frame", framed(frame).substr(0, 200), VQD_CLIENT_LOST, "within a message"},
        {"another protocol", "HTTP/1.1 400 Bad Request\r\n\r\n", VQD_CLIENT_WIRE, "no worker"},
        {"a newer wire", changed(fake::state(), 4, "\2"), VQD_CLIENT_WIRE,
         "speaks version 2 of the wire, and this program version 1"},
        {"an older wire", changed(fake::state(), 4, std::string(2, '\0')), VQD_CLIENT_WIRE, "speaks version 0"},
        {"4 GB", changed(fake::state(), 8, "\377\377\377\377"), VQD_CLIENT_WIRE, "larger"},
        {"a byte more than allowed", changed(fake::state(), 8, std::string("\1\0\20\0", 4)), VQD_CLIENT_WIRE, "larger"},
        {"a kind without meaning", fake::message(8, "{}"), VQD_CLIENT_WIRE, "not what a worker sends"},
        {"a pull", fake::message(VQD_WIRE_PULL, std::string(16, '\0')), VQD_CLIENT_WIRE, ""},
        {"text with a zero", fake::message(VQD_WIRE_STATE, std::string("{\0}", 3)), VQD_CLIENT_WIRE, ""},
        {"an event with a zero", fake::message(VQD_WIRE_EVENT, std::string("\0", 1)), VQD_CLIENT_WIRE, ""},
        {"a frame for another pull", fake::message(VQD_WIRE_FRAME, frame, 7), VQD_CLIENT_WIRE, ""},
        {"a refusal to send frames", fake::message(VQD_WIRE_REPLY, "{}", 1), VQD_CLIENT_WIRE, ""},
        {"two frames for one pull", framed(frame) + framed(frame), VQD_CLIENT_WIRE, ""},
        {"a frame without planes", framed(frame.substr(0, 96)), VQD_CLIENT_WIRE, ""},
        {"half a header", framed(frame.substr(0, 48)), VQD_CLIENT_WIRE, ""},
        {"a byte too many", framed(frame + "x"), VQD_CLIENT_WIRE, ""},
        {"no columns", framed(fake::Frame{.width = 0}.body()), VQD_CLIENT_WIRE, ""},
        {"planes larger than they came", framed(changed(frame, 80, "\377\377\377\377")), VQD_CLIENT_WIRE, ""},
        {"a packed frame", framed(fake::Frame{.flags = VQD_WIRE_PACKED}.body()), VQD_CLIENT_WIRE, ""},
        {"a time before all", framed(fake::Frame{.time = INT64_MIN}.body()), VQD_CLIENT_WIRE, ""},
    };
    for (const auto& [what, bytes, result, said] : cases) {
        SCOPED_TRACE(what);
        TearDown();
        SetUp();
        pull(0);
        fake::put(m_peer, bytes);
        if (result == VQD_CLIENT_LOST)
            endPeer();
        int got = next();
        while (got == VQD_CLIENT_TIMEOUT || got == VQD_CLIENT_OK) // a good frame comes first
            got = next();
        EXPECT_EQ(got, result);
        EXPECT_EQ(m_error.result, result);
        EXPECT_TRUE(std::string(m_error.text).find(said) != std::string::npos) << m_error.text;
        EXPECT_EQ(vqd_client_descriptor(m_client), -1);
        EXPECT_EQ(next(), VQD_CLIENT_TIMEOUT) << "it is told once";
    }
}

TEST_F(Client, KeepsTheNewestEventsAndTexts)
{
    for (int i = 0; i < 70; ++i)
        fake::put(m_peer, fake::message(VQD_WIRE_EVENT, "{\"number\":" + std::to_string(i) + "}"));
    fake::put(m_peer,
              fake::message(VQD_WIRE_PARAMETERS, "{\"old\":1}") + fake::message(VQD_WIRE_PARAMETERS, "{\"a\":1}"));
    for (int i = 0; i < 8; ++i)
        ASSERT_EQ(vqd_client_update(m_client, &m_error), VQD_CLIENT_OK);
    EXPECT_STREQ(vqd_client_parameters(m_client), "{\"a\":1}");
    uint32_t missed = 0;
    EXPECT_STREQ(vqd_client_event(m_client, &missed), "{\"number\":6}");
    EXPECT_EQ(missed, 6u);
    EXPECT_STREQ(vqd_client_event(m_client, &missed), "{\"number\":7}");
    EXPECT_EQ(missed, 0u);
    const std::string large(VQD_WIRE_MOST_MESSAGE, ' '); // leaves no room for the others
    std::thread sender([&] { fake::put(m_peer, fake::message(VQD_WIRE_EVENT, large)); });
    while (m_client->event_count > 1) {
        vqdc_wait(&m_client, 1, vqdc_deadline(kLong));
        ASSERT_EQ(vqd_client_update(m_client, &m_error), VQD_CLIENT_OK);
    }
    sender.join();
    EXPECT_EQ(vqd_client_event(m_client, &missed), large);
    EXPECT_EQ(missed, 62u);
}

// The name of a socket, as the client knows it: with and without the folder.
class ClientConnects : public testing::Test
{
protected:
    void SetUp() override { setenv("VQD_RUNTIME_DIR", m_folder.path.c_str(), 1); }
    ~ClientConnects() override { vqd_client_close(m_client); }

    bool connects(const std::string& name, int timeout = kLong)
    {
        vqd_client_close(m_client);
        m_client = vqd_client_connect(name.c_str(), timeout, &m_error);
        return m_client != nullptr;
    }
    bool mentions(const std::string& words) const { return std::string(m_error.text).find(words) != std::string::npos; }

    Folder m_folder;
    vqd_client* m_client = nullptr;
    vqd_client_frame m_frame{};
    vqd_client_error m_error{};
};

// Says its state and answers each pull with the next of these frames, then ends.
fake::Worker::Service frames(std::vector<fake::Frame> frames, std::vector<uint64_t>* afters = nullptr)
{
    return [frames, afters](int socket) {
        fake::put(socket, fake::state());
        for (const fake::Frame& frame : frames) {
            const auto asked = fake::take(socket);
            if (!asked)
                return;
            if (afters != nullptr)
                afters->push_back(asked->after());
            fake::put(socket, frame.answer(asked->prefix.request));
        }
    };
}

TEST_F(ClientConnects, OnlyToAWorkerThatSaysWhoItIs)
{
    EXPECT_FALSE(connects("nobody", 0));
    EXPECT_EQ(m_error.result, VQD_CLIENT_NO_WORKER);
    EXPECT_TRUE(mentions(m_folder.socket("nobody.sock") + ": No such file"));
    EXPECT_FALSE(connects("", 0));
    EXPECT_EQ(m_error.result, VQD_CLIENT_USAGE);
    EXPECT_FALSE(connects("/" + std::string(200, 'x'), 0));
    EXPECT_EQ(m_error.result, VQD_CLIENT_USAGE);
    EXPECT_FALSE(connects(std::string(200, 'x'), 0));
    EXPECT_EQ(m_error.result, VQD_CLIENT_NO_WORKER);

    const auto waits = [](int socket) { fake::take(socket); };
    const auto events = [](int socket) { fake::put(socket, fake::message(VQD_WIRE_EVENT, "{}")); };
    const auto says = [](int socket) {
        fake::put(socket, fake::state());
        fake::take(socket);
    };
    const fake::Worker worker(m_folder.socket("a.sock"), {waits, events, says});
    EXPECT_FALSE(connects("a", 1));
    EXPECT_EQ(m_error.result, VQD_CLIENT_NO_WORKER);
    EXPECT_TRUE(mentions("no worker said who it is within 1 ms"));
    EXPECT_FALSE(connects("a"));
    EXPECT_EQ(m_error.result, VQD_CLIENT_WIRE);
    EXPECT_TRUE(connects(m_folder.socket("a.sock"))) << m_error.text;
}

TEST_F(ClientConnects, AgainToAWorkerThatWasRestarted)
{
    std::vector<uint64_t> afters;
    const auto withoutCamera = [](int socket) { fake::put(socket, fake::state()); };
    const auto farewell = [](int socket) {
        fake::put(socket,
                  fake::state() + fake::message(VQD_WIRE_REPLY, R"({"ok":false,"error":"it is full","code":1})"));
    };
    const fake::Worker worker(m_folder.socket("a.sock"),
                              {withoutCamera, frames({{.session = 1, .sequence = 7}}, &afters), withoutCamera,
                               frames({{.session = 2, .sequence = 1}}, &afters), farewell,
                               frames({{.session = 2, .sequence = 1}, {.session = 2, .sequence = 4}}, &afters)});
    ASSERT_TRUE(connects("a")) << m_error.text;
    const auto next = [&] { return vqd_client_next(m_client, kLong, &m_frame, &m_error); };
    EXPECT_EQ(next(), VQD_CLIENT_OK);
    EXPECT_EQ(next(), VQD_CLIENT_LOST);
    EXPECT_TRUE(mentions("a: the worker has ended the connection"));
    EXPECT_EQ(next(), VQD_CLIENT_OK) << m_error.text;
    EXPECT_EQ(m_frame.session, 2u);
    EXPECT_EQ(m_frame.missed, 0u);
    EXPECT_EQ(next(), VQD_CLIENT_LOST);
    EXPECT_EQ(next(), VQD_CLIENT_LOST);
    EXPECT_TRUE(mentions("a: it is full"));
    EXPECT_EQ(next(), VQD_CLIENT_OK) << "the frame that it has already comes first and is left out";
    EXPECT_EQ(m_frame.sequence, 4u);
    EXPECT_EQ(m_frame.missed, 2u);
    EXPECT_EQ(afters, (std::vector<uint64_t>{0, 0, 0, 1}));
}

TEST_F(ClientConnects, AndRequests)
{
    std::vector<std::string> asked;
    const auto service = [&asked](int socket) {
        fake::put(socket, fake::state());
        const char* const replies[] = {
            "",
            R"({"ok":true,"settings":{"integration":500}})",
            R"( { "more" : [{"ok":true}], "ok" : false, "error" : "\"x\" is no setting\n\u00b0", "code" : 2 } )",
            R"({"ok":true})",
            R"({"ok":1})",
        };
        uint32_t late = 0;
        for (const char* reply : replies) {
            const auto request = fake::take(socket);
            asked.push_back(request->body);
            if (*reply == '\0') { // answered too late, with the next request
                late = request->prefix.request;
                continue;
            }
            fake::put(socket, fake::message(VQD_WIRE_REPLY, R"({"ok":true,"late":1})", late) +
                                  fake::message(VQD_WIRE_EVENT, "{}") +
                                  fake::message(VQD_WIRE_REPLY, reply, request->prefix.request));
        }
        fake::take(socket);
    };
    const fake::Worker worker(m_folder.socket("a.sock"), {service});
    ASSERT_TRUE(connects("a")) << m_error.text;
    const char* reply = "";
    EXPECT_EQ(vqd_client_get(m_client, nullptr, 0, &reply, &m_error), VQD_CLIENT_TIMEOUT);
    EXPECT_EQ(reply, nullptr);
    EXPECT_EQ(vqd_client_get(m_client, "[\"integration\"]", kLong, &reply, &m_error), VQD_CLIENT_OK);
    EXPECT_STREQ(reply, R"({"ok":true,"settings":{"integration":500}})");
    EXPECT_EQ(vqd_client_set(m_client, " {\"x\":1}", kLong, nullptr, &m_error), VQD_CLIENT_REFUSED);
    EXPECT_STREQ(m_error.text, "\"x\" is no setting \u00b0");
    EXPECT_EQ(m_error.code, 2);
    EXPECT_EQ(vqd_client_save(m_client, kLong, nullptr, &m_error), VQD_CLIENT_OK);
    EXPECT_EQ(vqd_client_set(m_client, "[]", kLong, nullptr, &m_error), VQD_CLIENT_USAGE);
    EXPECT_EQ(vqd_client_request(m_client, std::string(65537, ' ').c_str(), kLong, nullptr, &m_error),
              VQD_CLIENT_USAGE);
    EXPECT_EQ(vqd_client_request(m_client, "{\"do\":\"state\"}", kLong, &reply, &m_error), VQD_CLIENT_WIRE);
    EXPECT_EQ(asked, (std::vector<std::string>{R"({"do":"get"})", R"({"do":"get","names":["integration"]})",
                                               R"({"do":"set","settings": {"x":1}})", R"({"do":"save"})",
                                               R"({"do":"state"})"}));
}

TEST_F(ClientConnects, OnceForEachWorkerInTheFolder)
{
    const auto says = [](const std::string& state) {
        const auto service = [state](int socket) {
            fake::put(socket, fake::message(VQD_WIRE_STATE, state));
            fake::take(socket);
        };
        return std::vector<fake::Worker::Service>{service, service};
    };
    std::string newer = fake::state();
    newer.replace(4, 1, "\2");
    const auto other = [newer](int socket) { fake::put(socket, newer); };
    const auto silent = [](int socket) { fake::take(socket); };
    const fake::Worker one(m_folder.socket("b.sock"),
                           says(R"({"state":"streaming","camera":{"index":0,"serial":"24061100000001"}})")),
        another(m_folder.socket("a.sock"), says(R"({"state":"waiting","camera":null})")),
        ofTomorrow(m_folder.socket("c.sock"), {other, other});
    {
        const fake::Worker ended(m_folder.socket("stale.sock"), {});
    }
    std::filesystem::create_directory(m_folder.path / "folder.sock");
    vqd_client_worker found[8];
    ASSERT_EQ(vqd_client_list(found, 8, kLong, &m_error), 3);
    EXPECT_STREQ(found[0].name, "a");
    EXPECT_STREQ(found[0].serial, "");
    EXPECT_STREQ(found[0].state, "waiting");
    EXPECT_STREQ(found[1].name, "b");
    EXPECT_EQ(found[1].path, m_folder.socket("b.sock"));
    EXPECT_STREQ(found[1].serial, "24061100000001");
    EXPECT_STREQ(found[1].state, "streaming");
    EXPECT_EQ(found[1].result, VQD_CLIENT_OK);
    EXPECT_EQ(found[2].result, VQD_CLIENT_WIRE);
    EXPECT_TRUE(strstr(found[2].state, "speaks version 2") != nullptr) << found[2].state;

    const fake::Worker hangs(m_folder.socket("0.sock"), {silent});
    ASSERT_EQ(vqd_client_list(found, 1, 1, &m_error), 4) << "there is room for the first one only";
    EXPECT_EQ(found[0].result, VQD_CLIENT_TIMEOUT);
    EXPECT_STREQ(found[0].state, "does not answer");
    EXPECT_EQ(vqd_client_list(nullptr, 1, 0, &m_error), VQD_CLIENT_USAGE);
}

TEST(ClientJson, FindsMembersOfTheOutermostObject)
{
    const struct {
        const char *text, *name, *value;
    } cases[] = {
        {R"({"a":1,"b":2})", "b", "2"},
        {R"( { "a" : {"b":[1,"}"]} , "b" : "x\"y" } )", "b", R"("x\"y")"},
        {R"({"a":[{"b":1}],"b":null})", "b", "null"},
        {R"({"a":"b","c":1})", "b", nullptr},
        {R"([{"b":1}])", "b", nullptr},
        {R"({"a":"\)", "b", nullptr},
        {R"({"a":"x)", "a", nullptr},
        {R"({"a":[1)", "a", nullptr},
        {R"({"a":1 "b":2})", "b", nullptr},
        {R"({"a":,"b":2})", "b", nullptr},
        {R"({"a")", "a", nullptr},
        {"{\"a\":1,", "b", nullptr},
        {"{", "a", nullptr},
        {"", "a", nullptr},
    };
    for (const auto& [text, name, value] : cases) {
        const vqdc_json_value found = vqdc_json_member(text, name);
        EXPECT_EQ(std::string(found.text != nullptr ? found.text : "", found.length), value != nullptr ? value : "")
            << text;
    }
    const std::string deep = "{\"a\":" + std::string(100000, '[') + std::string(100000, ']') + ",\"b\":7}";
    EXPECT_EQ(vqdc_json_int(vqdc_json_member(deep.c_str(), "b"), 0), 7);
}

TEST(ClientJson, TurnsStringsIntoWhatATerminalMayShow)
{
    const auto shown = [](const std::string& written, size_t size = 100) {
        std::string text(size, 'x');
        return std::string(vqdc_json_string({written.data(), written.size()}, text.data(), size));
    };
    EXPECT_EQ(shown(R"("a\/\"\\\t\u001b[31m\u0000\u007f.")"), "a/\"\\  [31m  .");
    EXPECT_EQ(shown(R"("\u00e9 \u20ac \ud83d\ude00 \ud83d \ude00 \uzz")"),
              "\u00e9 \u20ac \U0001F600 \uFFFD \uFFFD uzz");
    for (size_t size = 1; size < 12; ++size) // cut between characters only
        EXPECT_EQ(shown("\"a\u20ac\u20acb\"", size), std::string("a\u20ac\u20acb")
                                                         .substr(0, size < 2   ? 0
                                                                    : size < 5 ? 1
                                                                    : size < 8 ? 4
                                                                    : size < 9 ? 7
                                                                               : 8));
    EXPECT_EQ(shown("12"), "");
    EXPECT_EQ(vqdc_json_int({"99999999999", 11}, -1), -1);
    EXPECT_EQ(vqdc_json_int({"1.5", 3}, -1), -1);
}

} // namespace
