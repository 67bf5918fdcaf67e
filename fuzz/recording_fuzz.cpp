// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Files of recordings: any bytes are refused or read, and what was read survives a repair. What a writer was given in
// any order comes back, from a cut file as far as its chunks are whole.
#include <sys/mman.h>
#include <unistd.h>

#include "host/failure.h"
#include "recording/mcap_repair.h"
#include "recording/mcap_writer.h"
#include "recording/message_check.h"

#include "input.h"

namespace
{

const mcap::Step kOn = [](uint64_t) {};

// A file in memory.
class File
{
public:
    explicit File(std::span<const uint8_t> bytes = {}) : m_descriptor(memfd_create("recording", MFD_CLOEXEC))
    {
        require(m_descriptor >= 0 && write(m_descriptor, bytes.data(), bytes.size()) == ssize_t(bytes.size()),
                "there is memory for a file");
    }
    ~File() { close(m_descriptor); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    operator int() const { return m_descriptor; }
    std::string path() const { return "/proc/self/fd/" + std::to_string(m_descriptor); }

private:
    const int m_descriptor;
};

struct Sent {
    std::string topic;
    uint32_t sequence;
    uint64_t time;
    Bytes data;

    bool operator==(const Sent&) const = default;
};

// Everything that can be read, also behind damage.
std::vector<Sent> messagesIn(mcap::Reader& reader, bool* isDamaged)
{
    std::vector<Sent> found;
    MessageCheck check;
    mcap::Cursor cursor(reader);
    for (;;) {
        try {
            const auto message = cursor.next();
            if (!message)
                return found;
            const auto channel = reader.channels().find(message->channel);
            if (channel == reader.channels().end())
                continue;
            found.push_back({channel->second.topic,
                             message->sequence,
                             message->logTime,
                             {message->data.begin(), message->data.end()}});
            check.look(channel->second, *message);
        } catch (const Failure& failure) {
            require(failure.code == kUsage, "a file is refused for what is in it");
            *isDamaged = true;
        }
    }
}

mcap::Verdict judged(mcap::Reader& reader)
{
    return mcap::verify(
        reader, [](const auto&, const auto&) {}, kOn);
}

void readAnything(std::span<const uint8_t> bytes)
{
    const File file(bytes);
    try {
        mcap::Reader reader(file.path());
        bool isDamaged = false;
        const std::vector<Sent> found = messagesIn(reader, &isDamaged);
        const mcap::Verdict verdict = judged(reader);
        require(verdict.faultCount > 0 || (reader.damage().empty() && verdict.messages == found.size()),
                "a file that is judged whole has a summary and all its messages");
        for (const mcap::MetadataPlace& place : reader.metadata()) {
            try {
                reader.read(place);
            } catch (const Failure&) {
                isDamaged = true;
            }
        }
        const File mended;
        const mcap::Repaired repaired = mcap::repair(reader, mended, kOn);
        mcap::Reader again(mended.path());
        bool isStillDamaged = false;
        const std::vector<Sent> kept = messagesIn(again, &isStillDamaged);
        require(judged(again).faultCount == 0, "what was repaired is whole");
        require(repaired.messages == kept.size() && (repaired.lostCount > 0 || kept == found),
                "a repair keeps all messages but those that it reports as lost");
    } catch (const Failure& failure) {
        require(failure.code == kUsage, "a file is refused for what is in it");
    }
}

// Calls of a writer. Returns what was sent.
std::vector<Sent> writeAnything(Input& input, int file)
{
    const bool packs = input.below(2) != 0 && mcap::ChunkPacking::missing() == nullptr;
    mcap::Writer writer(file, {.compression = packs ? mcap::Compression::zstd : mcap::Compression::none,
                               .chunkBytes = input.take<uint16_t>(),
                               .chunkTime = input.take<uint16_t>()});
    const msg::MessageType types[] = {{"a/msg/A", "uint8 a", ""}, {"a/msg/B", "", ""}};
    std::vector<std::string> topics;
    std::vector<Sent> sent;
    uint64_t time = input.take<uint64_t>() / 2;
    for (uint32_t sequence = 0; input.left() > 0; ++sequence) {
        switch (input.below(6)) {
        case 0:
            if (topics.size() == mcap::kMostDefinitions)
                break; // a reader takes no more
            topics.push_back("/" + std::to_string(sequence));
            writer.addChannel(topics.back(), input.of(types));
            break;
        case 1:
            writer.attachment("a", "", time, input.takeSome(input.take<uint8_t>()));
            break;
        case 2:
            writer.metadata("m", {{"key", input.text()}});
            break;
        case 3:
            writer.endChunk();
            break;
        default:
            if (topics.empty())
                break;
            const auto channel = static_cast<uint16_t>(input.below(static_cast<int>(topics.size())));
            const auto data = input.takeSome(input.take<uint8_t>());
            time += input.take<uint8_t>();
            sent.push_back({topics[channel], sequence, time, {data.begin(), data.end()}});
            writer.message(channel, sequence, time, time, data);
        }
    }
    writer.finish();
    return sent;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input input(data, size);
    if (input.below(2) == 0) {
        readAnything(input.takeSome(size));
        return 0;
    }
    const size_t share = input.take<uint8_t>();
    const File file;
    const std::vector<Sent> sent = writeAnything(input, file);
    bool isDamaged = false;
    mcap::Reader reader(file.path());
    require(messagesIn(reader, &isDamaged) == sent && !isDamaged, "what was written is read");
    require(judged(reader).faultCount == 0, "what was written is whole");
    const uint64_t left = reader.fileBytes() * share / 256;
    require(ftruncate(file, static_cast<off_t>(left)) == 0, "a file can be cut");
    if (left < sizeof mcap::kMagic)
        return 0;
    mcap::Reader cut(file.path());
    std::vector<Sent> some = messagesIn(cut, &isDamaged);
    require(!isDamaged && some.size() <= sent.size() && std::equal(some.begin(), some.end(), sent.begin()),
            "a cut file has the first messages");
    size_t whole = 0;
    for (const mcap::ChunkPlace& chunk : reader.chunks())
        whole += chunk.offset + chunk.length <= left;
    require(cut.chunks().size() == whole, "and all chunks that are whole");
    return 0;
}
