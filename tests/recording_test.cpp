// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Messages and the file that holds them.
#include <algorithm>
#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include "messages.h"
#include "recording/mcap_reader.h"
#include "recording/mcap_writer.h"

namespace
{

using mcap::Compression;

class File
{
public:
    File()
    {
        char name[] = "recording-XXXXXX";
        m_descriptor = mkstemp(name);
        m_path = std::filesystem::absolute(name);
    }
    ~File()
    {
        close(m_descriptor);
        std::filesystem::remove(m_path);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    operator int() const { return m_descriptor; }
    const std::filesystem::path& path() const { return m_path; }
    Bytes bytes() const
    {
        std::ifstream stream(m_path, std::ios::binary);
        return {std::istreambuf_iterator(stream), {}};
    }
    void write(std::span<const uint8_t> bytes) const
    {
        std::ofstream(m_path, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }

private:
    int m_descriptor;
    std::filesystem::path m_path;
};

msg::vqd_msgs::Event event(uint32_t number)
{
    msg::vqd_msgs::Event event;
    event.header.stamp.sec = static_cast<int32_t>(number);
    event.event = std::string(number % 7, 'e');
    event.json = "{\"number\": " + std::to_string(number) + "}";
    return event;
}

constexpr uint64_t kSecond = 1'000'000'000;
constexpr uint32_t kMessages = 50; // one a second, and a chunk ends every 5 s

void record(const File& file, Compression compression)
{
    mcap::Writer writer(file, {compression, 1u << 20, 4 * kSecond});
    const uint16_t images = writer.addChannel("/a/image", msg::sensor_msgs::Image::kType);
    const uint16_t events = writer.addChannel("/a/events", msg::vqd_msgs::Event::kType);
    const uint16_t others = writer.addChannel("/b/events", msg::vqd_msgs::Event::kType);
    EXPECT_EQ(images, 0);
    EXPECT_EQ(others, 2);
    writer.metadata("vqd", {{"serial", "24061100000001"}, {"version", "1"}});
    writer.attachment("24061100000001/eeprom.bin", "application/octet-stream", 7, Bytes(128, 0xA5));
    msg::CdrWriter cdr;
    for (uint32_t i = 0; i < kMessages; ++i)
        writer.message(i % 2 == 0 ? events : others, i, i * kSecond, i * kSecond + 1, toCdr(cdr, event(i)));
    writer.finish();
    EXPECT_EQ(writer.lostMessages(), 0u);
    EXPECT_EQ(writer.bytes(), file.bytes().size());
}

// How many messages from the first on are as they were written.
uint32_t readable(mcap::Reader& reader)
{
    uint32_t count = 0;
    mcap::Cursor cursor(reader);
    while (const auto message = cursor.next()) {
        msg::vqd_msgs::Event read;
        msg::fromCdr(message->data, read);
        EXPECT_EQ(read.json, event(count).json);
        EXPECT_EQ(read.event, event(count).event);
        EXPECT_EQ(message->logTime, count * kSecond);
        EXPECT_EQ(reader.channels().at(message->channel).topic, count % 2 == 0 ? "/a/events" : "/b/events");
        EXPECT_EQ(reader.channels().at(message->channel).type, "vqd_msgs/msg/Event");
        ++count;
    }
    return count;
}

std::string refusal(const File& file)
{
    try {
        mcap::Reader reader(file.path());
        readable(reader);
        return reader.damage();
    } catch (const Failure& failure) {
        return failure.what();
    }
}

TEST(Recording, GivesBackWhatWasWritten)
{
    for (const Compression compression : {Compression::none, Compression::zstd}) {
        if (compression == Compression::zstd && mcap::ChunkPacking::missing() != nullptr)
            continue;
        const File file;
        record(file, compression);
        mcap::Reader reader(file.path());
        EXPECT_EQ(reader.damage(), "");
        EXPECT_EQ(reader.chunks().size(), 10u);
        EXPECT_EQ(readable(reader), kMessages);
        EXPECT_EQ(reader.read(reader.metadata().at(0)).at("serial"), "24061100000001");
        EXPECT_EQ(reader.read(reader.attachments().at(0)), Bytes(128, 0xA5));
        EXPECT_EQ(mcap::Cursor(reader, 33 * kSecond).next()->sequence, 33u);
        EXPECT_FALSE(mcap::Cursor(reader, 50 * kSecond).next());
    }
}

// Whatever remains of a file, its whole chunks are there, and nothing else.
TEST(Recording, CutAnywhereLosesTheOpenChunkOnly)
{
    const File file;
    record(file, Compression::none);
    const Bytes whole = file.bytes();
    std::vector<uint64_t> ends;
    const mcap::Reader written(file.path());
    for (const mcap::ChunkPlace& chunk : written.chunks())
        ends.push_back(chunk.offset + chunk.length);
    for (size_t size = sizeof mcap::kMagic; size < whole.size(); size += 13) {
        file.write(std::span(whole).first(size));
        mcap::Reader reader(file.path());
        EXPECT_NE(reader.damage(), "") << size;
        const auto chunks = std::ranges::count_if(ends, [&](uint64_t end) { return end <= size; });
        EXPECT_EQ(readable(reader), 5 * chunks) << size;
    }
}

TEST(Recording, RefusesWhatIsDamaged)
{
    const File file;
    record(file, Compression::none);
    const Bytes whole = file.bytes();
    const mcap::ChunkPlace chunk = mcap::Reader(file.path()).chunks().at(3);
    const auto with = [&](uint64_t offset, std::initializer_list<uint8_t> bytes) {
        Bytes changed = whole;
        std::ranges::copy(bytes, changed.begin() + static_cast<std::ptrdiff_t>(offset));
        file.write(changed);
        return refusal(file);
    };
    EXPECT_NE(with(0, {'M'}).find("does not begin as an MCAP file"), std::string::npos);
    EXPECT_NE(with(chunk.offset + chunk.length - 3, {0xFF}).find("its CRC is wrong"), std::string::npos);
    EXPECT_NE(with(chunk.offset + 9 + 16 + 4, {1}).find("claims to unpack to 42949"), std::string::npos);
    EXPECT_NE(with(chunk.offset, {2}).find("where there is none"), std::string::npos);
    EXPECT_NE(with(whole.size() - 40, {0xFF}).find("the recording has no summary"), std::string::npos);
}

// The summary takes the place of the last chunk when there is no room for both.
TEST(Recording, FullDiskLeavesAReadableFile)
{
    const File file;
    record(file, Compression::none);
    mcap::Reader reader(file.path());
    const mcap::ChunkPlace last = reader.chunks().back();
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    signal(SIGXFSZ, SIG_IGN);
    const rlimit full{last.offset + last.length + 100, before.rlim_max};
    const File second;
    setrlimit(RLIMIT_FSIZE, &full);
    mcap::Writer writer(second, {Compression::none, 1u << 20, 4 * kSecond});
    const uint16_t channels[] = {writer.addChannel("/a/events", msg::vqd_msgs::Event::kType),
                                 writer.addChannel("/b/events", msg::vqd_msgs::Event::kType)};
    msg::CdrWriter cdr;
    uint32_t i = 0;
    EXPECT_THROW(
        for (;; ++i) writer.message(channels[i % 2], i, i * kSecond, i * kSecond, toCdr(cdr, event(i))), Failure);
    writer.finish();
    setrlimit(RLIMIT_FSIZE, &before);
    mcap::Reader left(second.path());
    EXPECT_EQ(left.damage(), "");
    EXPECT_EQ(readable(left) + writer.lostMessages(), i + 1);
    EXPECT_GE(readable(left), kMessages / 2);
}

// The values that ROS 2 itself has published for its types; two publishers with other ones warn of each other.
TEST(Messages, HashesAreThoseOfRos)
{
    EXPECT_STREQ(msg::sensor_msgs::Image::kType.hash,
                 "RIHS01_d31d41a9a4c4bc8eae9be757b0beed306564f7526c88ea6a4588fb9582527d47");
    EXPECT_STREQ(msg::sensor_msgs::CameraInfo::kType.hash,
                 "RIHS01_b3dfd68ff46c9d56c80fd3bd4ed22c7a4ddce8c8348f2f59c299e73118e7e275");
    EXPECT_STREQ(msg::sensor_msgs::PointCloud2::kType.hash,
                 "RIHS01_9198cabf7da3796ae6fe19c4cb3bdd3525492988c70522628af5daa124bae2b5");
}

TEST(Messages, AreAlignedAndBounded)
{
    msg::sensor_msgs::CameraInfo info;
    info.header.frame_id = "abc";
    info.d = {1, 2, 3, 4, 5};
    info.k[8] = 1;
    info.roi.do_rectify = true;
    msg::CdrWriter cdr;
    const auto bytes = toCdr(cdr, info);
    EXPECT_EQ(bytes.size(), 4u + 345); // with gaps of 3 and 4 bytes before and behind the count of d
    msg::sensor_msgs::CameraInfo back;
    msg::fromCdr(bytes, back);
    EXPECT_EQ(back.d, info.d);
    EXPECT_EQ(back.k, info.k);
    EXPECT_TRUE(back.roi.do_rectify);
    for (size_t size = 0; size < bytes.size(); ++size)
        EXPECT_THROW(msg::fromCdr(bytes.first(size), back), Failure) << size;
    Bytes lying(bytes.begin(), bytes.end());
    lying[12] = lying[13] = lying[14] = lying[15] = 0xFF; // the length of the text
    EXPECT_THROW(msg::fromCdr(lying, back), Failure);
}

} // namespace
