// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Recordings read again: what comes out of a file, however it was written and whatever happened to it.
#include <gtest/gtest.h>

#include <algorithm>
#include <fcntl.h>
#include <fstream>
#include <unistd.h>

#include "recording/camera_writer.h"
#include "recording/layout.h"
#include "recording/player.h"
#include "support/temporary_folder.h"

namespace
{

constexpr int64_t kMs = 1'000'000;
constexpr int64_t kBegin = 1'700'000'000'000 * kMs;

CameraFacts factsOf(const std::string& serial)
{
    CameraFacts facts{serial, "VQD-HT120", "VQD", "03a4:871a", true, {}, {}, {}, {}, {}};
    facts.eeprom = Bytes(128, 0x5A);
    facts.orthogonal = Bytes(4096, 0x27);
    facts.fppn.assign(4800, -10);
    return facts;
}

// Frames of one number differ from all others, and in some the neighbours are so unlike that packing gains nothing.
Bytes rawFrame(uint64_t number)
{
    Bytes raw(VQD_FRAME_BYTES);
    for (size_t i = 0; i < raw.size(); ++i)
        raw[i] = static_cast<uint8_t>(number % 2 == 0 ? (i * 2654435761 + number) >> 13 : i / 4096 + number);
    raw[0] = 0x44;
    raw[1] = 0x33;
    return raw;
}

class PlayerTest : public testing::Test
{
protected:
    std::filesystem::path path(const std::string& name) const { return folder / name; }

    // Frames `first` to `last`, 30 ms apart, with other parameters from each multiple of 5 on, and an event before each
    // multiple of 4.
    std::filesystem::path record(const std::string& name, uint64_t first, uint64_t last, bool compact = false,
                                 const std::string& serial = "24061100000001") const
    {
        const int file = open(path(name).c_str(), O_RDWR | O_CREAT | O_EXCL, 0666);
        CameraWriter writer(file, factsOf(serial), {.name = "vqd_" + serial, .compact = compact, .session = 77},
                            static_cast<uint64_t>(kBegin));
        for (uint64_t number = first; number <= last; ++number) {
            QueuedFrame frame;
            frame.raw = rawFrame(number);
            frame.header.sequence = number;
            frame.header.monotonic_time_ns = static_cast<int64_t>(number) * 30 * kMs;
            frame.header.dropped = static_cast<uint32_t>(number % 3);
            const int64_t real = kBegin + frame.header.monotonic_time_ns;
            const RecordedTime time{static_cast<uint64_t>(real), real};
            if (number == first || number % 5 == 0) {
                RecordedParameters parameters{Bytes(VQD_IMAGE_BYTES, static_cast<uint8_t>(number / 5)), {}};
                parameters.image[11] = 1;
                parameters.host.minDepth = static_cast<int>(number / 5);
                writer.parameters(parameters, time);
            }
            if (number % 4 == 0)
                writer.event("set", {{"event", "set"}, {"number", number}}, time);
            writer.frame(frame, time);
        }
        writer.finish();
        close(file);
        return path(name);
    }

    // All frames as texts: sequence, parameters, events, drops; "?" where a byte is not the one that was recorded.
    std::string framesOf(std::initializer_list<std::filesystem::path> files,
                         std::vector<std::string>* warnings = nullptr)
    {
        std::vector<Recording> parts;
        for (const auto& file : files)
            parts.emplace_back(file);
        RecordedFrames frames(std::move(parts), [&](const std::string& warning) {
            if (warnings != nullptr)
                warnings->push_back(warning);
        });
        std::string text;
        while (frames.next(*frame)) {
            text += std::to_string(frame->sequence) + '/' +
                    (frame->parameters ? std::to_string(frame->parameters->host.minDepth) : "-") +
                    std::string(frame->events.size(), 'e') + std::string(frame->dropped, 'd') +
                    (std::ranges::equal(frame->raw, rawFrame(frame->sequence)) ? " " : "? ");
            EXPECT_EQ(frame->session, 77U);
            EXPECT_EQ(frame->realTime, kBegin + static_cast<int64_t>(frame->monotonicTime));
        }
        return text;
    }

    // Fails with a sentence that has this part, and this code.
    void expectRefused(const std::filesystem::path& file, const std::string& serial, int code, const std::string& part)
    {
        try {
            const Recording recording(file, serial);
            ADD_FAILURE() << file << " is taken";
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.code, code) << failure.what();
            EXPECT_NE(std::string(failure.what()).find(part), std::string::npos) << failure.what();
        }
    }

    const TemporaryFolder temporary;
    const std::filesystem::path folder = temporary.path();
    const std::unique_ptr<RecordedFrame> frame = std::make_unique<RecordedFrame>();
};

TEST_F(PlayerTest, FramesComeBackBitForBitFromEachFormInTheOrderOfTheirTimes)
{
    constexpr char kFirst[] = "1/0d 2/0dd 3/0 4/0ed 5/1dd ";
    constexpr char kSecond[] = "6/1 7/1d 8/1edd 9/1 10/2d ";
    const auto images = record("a", 1, 5), packed = record("b", 6, 10, true);
    EXPECT_EQ(framesOf({images}), kFirst);
    EXPECT_EQ(framesOf({packed}), kSecond);
    EXPECT_EQ(framesOf({packed, images}), std::string(kFirst) + kSecond);
    EXPECT_THROW(framesOf({images, record("c", 1, 2, false, "24061100000002")}), Failure);
}

TEST_F(PlayerTest, ACutFileGivesWhatIsWholeAndWarnsOnce)
{
    const auto whole = record("whole", 1, 12);
    const auto size = std::filesystem::file_size(whole);
    std::string before;
    for (const int percent : {2, 30, 60, 95}) {
        const auto cut = path("cut");
        std::filesystem::copy_file(whole, cut, std::filesystem::copy_options::overwrite_existing);
        std::filesystem::resize_file(cut, size * static_cast<unsigned>(percent) / 100);
        std::vector<std::string> warnings;
        const std::string frames = framesOf({cut}, &warnings);
        EXPECT_EQ(frames.find('?'), std::string::npos);
        EXPECT_TRUE(frames.starts_with(before)) << frames;
        EXPECT_EQ(warnings.size(), 1U);
        before = frames;
    }
    EXPECT_TRUE(before.starts_with("1/0d 2/0dd 3/0 ")) << before;
}

// Writes messages of its own, as another program might.
class Forged
{
public:
    explicit Forged(const std::filesystem::path& path, mcap::Names metadata = {{"format", "1"},
                                                                               {"serial", "24061100000001"},
                                                                               {"name", "n"},
                                                                               {"product", "VQD-HT120"},
                                                                               {"vendor", "VQD"},
                                                                               {"usb", "03a4:871a"},
                                                                               {"session", "77"}})
        : m_file(open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0666)), writer(m_file, {mcap::Compression::none})
    {
        if (!metadata.empty())
            writer.metadata("vqd", metadata);
    }
    ~Forged()
    {
        writer.finish();
        close(m_file);
    }

    void header(uint64_t number)
    {
        msg::vqd_msgs::FrameHeader header;
        header.header.stamp = stampOf(number);
        header.sequence = number;
        header.monotonic_time_ns = number * static_cast<uint64_t>(30 * kMs);
        std::copy_n(rawFrame(number).begin(), header.data.size(), header.data.begin());
        if (spoilStart)
            header.data[0] = 0xBB;
        put("/frame_header", header);
    }
    void plane(uint64_t number, const char* topic, size_t at)
    {
        msg::sensor_msgs::Image image;
        image.header.stamp = stampOf(number);
        image.width = 320;
        image.height = 240;
        image.step = 640;
        const Bytes raw = rawFrame(number);
        image.data.assign(raw.begin() + static_cast<std::ptrdiff_t>(at),
                          raw.begin() + static_cast<std::ptrdiff_t>(at) + 153600 - (spoilSize ? 2 : 0));
        put(topic, image);
    }
    void amplitude(uint64_t number) { plane(number, "/amplitude/image_raw", 512); }
    void depth(uint64_t number) { plane(number, "/depth/image_raw", 154112); }
    void parameters(const std::string& host)
    {
        msg::vqd_msgs::Parameters message;
        message.host = host;
        put("/parameters", message);
    }

    bool spoilStart = false, spoilSize = false;

private:
    const int m_file; // first, since the writer needs it

public:
    mcap::Writer writer;

private:
    static msg::builtin_interfaces::Time stampOf(uint64_t number)
    {
        const int64_t time = kBegin + static_cast<int64_t>(number) * 30 * kMs;
        return {static_cast<int32_t>(time / 1'000'000'000), static_cast<uint32_t>(time % 1'000'000'000)};
    }
    template <typename Message> void put(const std::string& topic, const Message& message)
    {
        if (!m_channels.contains(topic))
            m_channels[topic] = writer.addChannel("/n" + topic, Message::kType);
        ++m_time;
        writer.message(m_channels[topic], 0, m_time, m_time, toCdr(m_cdr, message));
    }

    std::map<std::string, uint16_t> m_channels;
    msg::CdrWriter m_cdr;
    uint64_t m_time = 0;
};

TEST_F(PlayerTest, WhatIsNoWholeFrameIsLeftOutAndTheRestComesBack)
{
    {
        Forged file(path("forged"));
        file.depth(1); // in any order
        file.header(1);
        file.amplitude(1);
        file.header(2); // its depth is missing
        file.amplitude(2);
        file.header(3);
        file.header(3); // twice
        file.amplitude(3);
        file.depth(3);
        file.spoilStart = true;
        file.header(4);
        file.amplitude(4);
        file.depth(4);
        file.spoilStart = false;
        file.parameters(hostValuesJson({}).dump());
        file.spoilSize = true;
        file.depth(5);
        file.spoilSize = false;
        file.header(6);
        file.amplitude(6);
        file.depth(6);
        file.parameters("{\"schema\": \"vqd.recorded-parameters/1\"}"); // and no values
        file.header(7);
        file.amplitude(7);
        file.depth(7);
    }
    std::vector<std::string> warnings;
    EXPECT_EQ(framesOf({path("forged")}, &warnings), "1/- 3/- 6/0 7/- ");
    EXPECT_EQ(warnings.size(), 1U);
}

TEST_F(PlayerTest, FilesThatAreNoRecordingOfThisCameraAreRefusedWithAReason)
{
    const mcap::Names good = {{"format", "1"},          {"serial", "1"},   {"name", "n"},
                              {"product", "VQD-HT120"}, {"vendor", "VQD"}, {"usb", "03a4:871a"}};
    const struct {
        const char* key;
        const char* value;
        int code;
        const char* reason;
    } cases[] = {
        {"format", "2", 2, "format 2"},
        {"format", "later", 2, "of which format"},
        {"product", "", 2, "which camera"},
        {"product", "two\nlines", 2, "which camera"},
        {"usb", "03a4-871a", 2, "which camera"},
        {"usb", "3a4:871a", 2, "which camera"},
        {"serial", "\033[2J", 2, "no serial number"},
        {"serial", "240611000000010", 2, "no serial number"},
    };
    for (const auto& c : cases) {
        mcap::Names names = good;
        names[c.key] = c.value;
        {
            const Forged file(path("forged"), names);
        }
        expectRefused(path("forged"), "", c.code, c.reason);
    }
    {
        const Forged file(path("foreign"), {});
    }
    expectRefused(path("foreign"), "", 2, "no recording of a camera");
    {
        Forged file(path("table"));
        file.writer.attachment("24061100000001/orthogonal.bin", "application/octet-stream", 1, Bytes(4095));
    }
    expectRefused(path("table"), "", 2, "orthogonal.bin of 4095 bytes instead of 4096");
    {
        Forged file(path("two"));
        file.writer.metadata("vqd", good);
    }
    expectRefused(path("two"), "", 2, "choose one with -c, of 24061100000001, 1");
    expectRefused(path("two"), "24061100000009", 3, "no camera 24061100000009");
    EXPECT_EQ(Recording(path("two"), "1").camera().serial, "1");
    std::ofstream(path("text")) << "no recording at all, but a text\n";
    expectRefused(path("text"), "", 2, "is no recording");
    expectRefused(path("missing"), "", 1, "missing");
}

TEST_F(PlayerTest, APlayerSendsEachFrameAtItsTimeAndIsTheCameraThatWasRecorded)
{
    std::vector<Recording> parts;
    parts.emplace_back(record("a", 5, 6));
    parts.emplace_back(record("b", 8, 8, true)); // 60 ms later
    parts.emplace_back(record("c", 900, 900));   // much later
    const auto make = [&](bool loop) {
        std::vector<Recording> files;
        for (const char* name : {"a", "b", "c"})
            files.emplace_back(path(name));
        return Player(RecordedFrames(std::move(files), {}), {true, loop});
    };
    const sim::Image registers{};
    const std::string product;
    const sim::FrameRequest request{0, 0, registers, product};
    std::vector<uint8_t> sent(VQD_FRAME_BYTES);
    const auto next = [&](Player& player) {
        const sim::Replay result = player.replay(request, std::span(sent).first<sim::kFrameBytes>());
        return result == sim::Replay::frame ? *player.interval() : -1;
    };
    Player player = make(false), looping = make(true);
    const sim::TimeUs expected[] = {30'000, 60'000, 1'000'000};
    for (Player* one : {&player, &looping})
        for (const sim::TimeUs interval : expected)
            EXPECT_EQ(next(*one), interval);
    EXPECT_GT(next(player), 0); // the last frame
    EXPECT_EQ(sent, rawFrame(900));
    EXPECT_EQ(next(player), -1);
    EXPECT_EQ(next(player), -1);
    EXPECT_GT(next(looping), 0);
    EXPECT_GT(next(looping), 0);
    EXPECT_EQ(sent, rawFrame(5));

    const sim::Config config = playedConfig(player.camera());
    EXPECT_EQ(config.productId, 0x871A);
    EXPECT_EQ(sim::hexDigits(config.serial), "24061100000001");
    CameraFacts nameless = player.camera();
    nameless.serial.clear();
    EXPECT_EQ(sim::hexDigits(playedConfig(nameless).serial), "00000000000000"); // and not that of a real camera
    CameraFacts stored = player.camera();
    stored.eeprom = Bytes(128, 0x42);
    EXPECT_EQ(playedEeprom(stored, nullptr)[48], 0x42); // where the parameters are lost
    stored.eeprom.clear();
    EXPECT_THROW(playedEeprom(stored, nullptr), Failure);
    const sim::Eeprom eeprom = playedEeprom(player.camera(), player.firstParameters());
    EXPECT_EQ(eeprom[48], 1);    // of the first image
    EXPECT_EQ(eeprom[11], 0x5A); // but not that it grabs
    auto tables = playedTables(player.camera());
    EXPECT_EQ(tables[0x7000], Bytes(4096, 0x27));
    EXPECT_EQ(tables[0x4000].size(), 9600U);
    EXPECT_EQ(tables[0x4000][0] * 256 + tables[0x4000][1], 65526);
}

} // namespace
