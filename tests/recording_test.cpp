// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Messages and the file that holds them.
#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include "messages.h"
#include "recording/mcap_repair.h"
#include "recording/mcap_writer.h"
#include "recording/message_check.h"

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

// The first fault that is found, or nothing.
std::string judged(const File& file)
{
    mcap::Reader reader(file.path());
    const mcap::Verdict verdict = mcap::verify(
        reader, [](const auto&, const auto&) {}, [](uint64_t) {});
    EXPECT_EQ(verdict.faults.empty(), verdict.faultCount == 0);
    return verdict.faultCount == 0 ? "" : verdict.faults.front();
}

// Where the content of the nth record of a kind is.
uint64_t contentOf(const File& file, mcap::Opcode opcode, int n)
{
    const mcap::Reader reader(file.path());
    for (uint64_t offset = sizeof mcap::kMagic;;) {
        const auto record = reader.file().record(offset, reader.fileBytes());
        if (!record)
            throw std::runtime_error("there is no such record");
        if (record->opcode == opcode && n-- == 0)
            return offset + mcap::kRecordHead;
        offset += record->length;
    }
}

// Other readers trust what ours does not look at. A CRC of 0 is none, so each change is found by what it changes.
TEST(Recording, VerifyFindsWhatDoesNotFit)
{
    using mcap::Opcode;
    const File file;
    record(file, Compression::none);
    EXPECT_EQ(judged(file), "");
    const Bytes whole = file.bytes();
    Bytes changed = whole;
    changed.at(contentOf(file, Opcode::header, 0) + 4) = 'R'; // of its profile, ros2
    file.write(changed);
    EXPECT_NE(judged(file).find("its CRC is wrong"), std::string::npos);
    const struct {
        const char* what;
        Opcode opcode;
        int record;
        uint64_t offset; // in its content
        uint8_t value;
        const char* fault;
    } changes[] = {
        {"attached byte", Opcode::attachment, 0, 100, 0, "its CRC is wrong"},
        {"chunk's last time", Opcode::chunk, 1, 12, 0, "it is not of the time that the chunk claims"},
        {"message's channel", Opcode::chunk, 1, 40 + 9, 7, "of a channel that is not defined before it"},
        {"time in an index", Opcode::messageIndex, 4, 6, 0xFF, "does not fit the messages of its chunk"},
        {"channel of an index", Opcode::messageIndex, 4, 0, 9, "does not fit the messages of its chunk"},
        {"index's kind of record", Opcode::messageIndex, 4, UINT64_MAX - 8, 0x80, "messages without an index"},
        {"topic in the summary", Opcode::channel, 0, 10, 'X', "channel 0 is defined in two ways"},
        {"statistics' messages", Opcode::statistics, 0, 0, 51, "statistics do not fit"},
        {"statistics' attachments", Opcode::statistics, 0, 14, 2, "statistics do not fit"},
        {"statistics' messages of a channel", Opcode::statistics, 0, 48, 24, "statistics do not fit"},
        {"chunk's time in the summary", Opcode::chunkIndex, 3, 8, 1, "does not fit chunk 4"},
        {"place of an index", Opcode::chunkIndex, 3, 40, 1, "does not fit chunk 4"},
        {"name of an attachment", Opcode::attachmentIndex, 0, 50, 'X', "does not name what the data holds"},
        {"name of metadata", Opcode::metadataIndex, 0, 20, 'X', "does not name what the data holds"},
        {"place of a group", Opcode::summaryOffset, 2, 1, 0, "where its groups are"},
    };
    for (const auto& change : changes) {
        changed = whole;
        file.write(whole);
        for (const uint64_t crc : {contentOf(file, Opcode::dataEnd, 0), contentOf(file, Opcode::footer, 0) + 16,
                                   contentOf(file, Opcode::chunk, 1) + 24})
            std::fill_n(changed.begin() + static_cast<std::ptrdiff_t>(crc), 4, uint8_t{0});
        changed.at(contentOf(file, change.opcode, change.record) + change.offset) = change.value;
        file.write(changed);
        EXPECT_NE(judged(file).find(change.fault), std::string::npos) << change.what << ": " << judged(file);
    }
}

// What was read before a damaged chunk or after it is not affected by it, with a summary and without.
TEST(Recording, DamageStaysWhereItIs)
{
    const File file, second;
    record(file, Compression::none);
    const Bytes whole = file.bytes();
    const mcap::ChunkPlace damaged = mcap::Reader(file.path()).chunks().at(3);
    const uint64_t cut = mcap::Reader(file.path()).chunks().at(8).offset + 50;
    for (const uint64_t size : {uint64_t{whole.size()}, cut}) {
        Bytes changed(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        changed.at(damaged.offset + damaged.length - 3) ^= 1;
        file.write(changed);
        mcap::Reader reader(file.path());
        mcap::Cursor cursor(reader);
        std::vector<uint32_t> found;
        for (bool ended = false; !ended;) {
            try {
                const auto message = cursor.next();
                ended = !message;
                if (message)
                    found.push_back(message->sequence);
            } catch (const Failure& failure) {
                EXPECT_EQ(size, whole.size()) << failure.what(); // a scan has left the chunk out
            }
        }
        std::vector<uint32_t> expected;
        for (uint32_t i = 0; i < (size == cut ? 40 : kMessages); ++i)
            if (i / 5 != 3)
                expected.push_back(i);
        EXPECT_EQ(found, expected);

        second.write({});
        lseek(second, 0, SEEK_SET);
        const mcap::Repaired repaired = mcap::repair(reader, second, [](uint64_t) {});
        EXPECT_EQ(repaired.messages, expected.size());
        EXPECT_EQ(repaired.attachments + repaired.metadata, 2u);
        EXPECT_EQ(repaired.lostCount, 1u); // also when the scan of a cut file has left it out
        EXPECT_EQ(judged(second), "");
        mcap::Reader again(second.path());
        EXPECT_EQ(again.chunks().size(), expected.size() / 5);
        EXPECT_EQ(again.read(again.attachments().at(0)), Bytes(128, 0xA5));
        EXPECT_EQ(again.channels().at(0).schema->definition, msg::sensor_msgs::Image::kType.schema);
        EXPECT_EQ(mcap::Cursor(again, 20 * kSecond).next()->publishTime, 20 * kSecond + 1);
    }
}

TEST(Recording, MessagesAreWhatTheirTypeSays)
{
    const auto schema = std::make_shared<mcap::Schema>();
    const auto fault = [&](MessageCheck& check, uint64_t time, const auto& message) -> std::string {
        msg::CdrWriter cdr;
        try {
            check.look({"/a", message.kType.name, "cdr", schema}, {0, 0, time, time, toCdr(cdr, message)});
            return "";
        } catch (const Failure& failure) {
            return failure.what();
        }
    };
    MessageCheck check;
    msg::sensor_msgs::Image image;
    image.height = 2;
    image.step = 3;
    image.data.resize(6);
    EXPECT_EQ(fault(check, 5, image), "");
    EXPECT_EQ(fault(check, 4, image), "the time goes back");
    image.height = 3;
    EXPECT_EQ(fault(check, 5, image), "the picture has another size than it claims");
    msg::vqd_msgs::FrameHeader frame;
    frame.sequence = 8;
    EXPECT_EQ(fault(check, 5, frame), "");
    EXPECT_EQ(fault(check, 5, frame), "the number of the frame does not grow");
    msg::vqd_msgs::RawFrame raw;
    raw.planes.resize(307'199);
    EXPECT_EQ(fault(check, 5, raw), "the frame has another size than a camera sends");
    EXPECT_THROW(
        check.look({"/a", msg::vqd_msgs::Event::kType.name, "cdr", schema}, {0, 0, 9, 9, Bytes{0, 1, 0, 0, 1}}),
        Failure);
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
    EXPECT_THROW(for (;; ++i) writer.message(channels[i % 2], i, i * kSecond, i * kSecond, toCdr(cdr, event(i))),
                 Failure);
    writer.finish();
    setrlimit(RLIMIT_FSIZE, &before);
    mcap::Reader left(second.path());
    EXPECT_EQ(left.damage(), "");
    EXPECT_EQ(readable(left) + writer.lostMessages(), i + 1);
    EXPECT_GE(readable(left), kMessages / 2);
}

// To make room for the summary on a disk that refuses it for another reason would cost one chunk after the other.
TEST(Recording, ABrokenDiskKeepsWhatItHas)
{
    const int file = memfd_create("recording", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    mcap::Writer writer(file, {Compression::none, 1u << 20, 4 * kSecond});
    const uint16_t channels[] = {writer.addChannel("/a/events", msg::vqd_msgs::Event::kType),
                                 writer.addChannel("/b/events", msg::vqd_msgs::Event::kType)};
    msg::CdrWriter cdr;
    for (uint32_t i = 0; i < 10; ++i)
        writer.message(channels[i % 2], i, i * kSecond, i * kSecond, toCdr(cdr, event(i)));
    ASSERT_EQ(fcntl(file, F_ADD_SEALS, F_SEAL_GROW), 0); // from now on writing fails with EPERM
    EXPECT_THROW(writer.finish(), Failure);
    mcap::Reader left("/proc/self/fd/" + std::to_string(file));
    EXPECT_EQ(readable(left), 10u);
    close(file);
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
    EXPECT_STREQ(msg::diagnostic_msgs::DiagnosticArray::kType.hash,
                 "RIHS01_5a8a36efb05fb25070fa0fb3810290c0e6cd4862b54a8fb975a1ee8dc55a333e");
    EXPECT_STREQ(msg::tf2_msgs::TFMessage::kType.hash,
                 "RIHS01_e369d0f05a23ae52508854b66f6aa0437f3449d652e8cbf22d5abe85d020f087");
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

    // Zeros, of which a chunk holds 256 MiB in some kB, are elements of 100 times their size in memory.
    Bytes many{0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    many.insert(many.end(), {0, 0, 16, 0});
    many.resize(many.size() + (1u << 20));
    msg::diagnostic_msgs::DiagnosticArray array;
    EXPECT_THROW(msg::fromCdr(many, array), Failure);
    EXPECT_LT(array.status.capacity(), 10'000u);
}

} // namespace
