// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The wire's reader: a stream of any bytes, cut anywhere, at either end of a connection.
#include "host/failure.h"
#include "worker/messages.h"

#include "input.h"

namespace
{

// What a reader finds: the bodies one after the other with their kinds, and whether it gave up.
struct Found {
    std::vector<uint8_t> all;
    bool failed = false;

    bool operator==(const Found&) const = default;
};

void readBody(const Received& message)
{
    try {
        if (message.prefix.kind == VQD_WIRE_PULL)
            pullIn(message.body);
        if (message.prefix.kind == VQD_WIRE_FRAME) {
            const ReceivedFrame frame = frameIn(message.body);
            require(frame.planes.size() == frame.header.plane_bytes, "a frame's planes are as long as it says");
            require(frame.planes.size() <= size_t{4} * frame.header.width * frame.header.height,
                    "and fit into the planes that they are for");
        }
    } catch (const Failure& failure) {
        require(failure.code == kUsage, "a record is refused as wrong use");
    }
}

Found read(std::span<const uint8_t> stream, uint32_t most, Input* cuts)
{
    MessageReader reader(most);
    Found found;
    try {
        while (!stream.empty()) {
            const std::span<uint8_t> space = reader.space();
            require(space.size() >= 4096 && space.size() <= (most + (256u << 10)),
                    "the reader asks for some memory, not for all");
            const size_t wanted = cuts != nullptr ? 1u + cuts->take<uint8_t>() : stream.size();
            const size_t size = std::min({wanted, space.size(), stream.size()});
            std::copy_n(stream.begin(), size, space.begin());
            stream = stream.subspan(size);
            reader.came(size);
            while (const std::optional<Received> message = reader.next()) {
                require(message->body.size() == message->prefix.size && message->prefix.size <= most,
                        "a message has the size that it says, and one that is allowed");
                readBody(*message);
                found.all.push_back(static_cast<uint8_t>(message->prefix.kind));
                found.all.insert(found.all.end(), message->body.begin(), message->body.end());
            }
        }
    } catch (const Failure& failure) {
        require(failure.code == kUsage, "a stream is refused as wrong use");
        found.failed = true;
    }
    return found;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input input(data, size);
    const uint32_t most = input.below(2) != 0 ? VQD_WIRE_MOST_REQUEST : VQD_WIRE_MOST_MESSAGE;
    const auto cuts = input.takeSome(input.take<uint8_t>() % 32u);
    const auto stream = input.takeSome(size);
    Input cutting(cuts.data(), cuts.size());
    require(read(stream, most, nullptr) == read(stream, most, &cutting), "it does not matter how a stream is cut");
    return 0;
}
