// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Messages of the wire, for both ends: made from records and texts, and taken from bytes that nobody vouches for.
#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "host/bytes.h"
#include "worker/wire.h"

// What follows a prefix. Many readers share one body; each has a prefix of its own, with its own request number.
using Body = std::shared_ptr<const Bytes>;

struct Message {
    vqd_wire_prefix prefix;
    Body body;
};

// Fails for a body that no reader would take.
Message messageOf(uint16_t kind, Body body, uint32_t request = 0);
Message messageOf(uint16_t kind, std::string_view text, uint32_t request = 0);

// Appends a frame's body to `into`; the planes may be one part or several.
void appendFrame(Bytes& into, const vqd_wire_frame& header, std::initializer_list<std::span<const uint8_t>> planes);

// A message as it came. `body` is valid until the reader is asked for more.
struct Received {
    vqd_wire_prefix prefix;
    std::span<const uint8_t> body;

    std::string_view text() const { return {reinterpret_cast<const char*>(body.data()), body.size()}; }
};

struct ReceivedFrame {
    vqd_wire_frame header;
    std::span<const uint8_t> planes;
};

// Fail with a usage error unless the body is one such record, with as many planes' bytes as the record says.
ReceivedFrame frameIn(std::span<const uint8_t> body);
vqd_wire_pull pullIn(std::span<const uint8_t> body);

// Takes messages from a stream of bytes, however it is cut. It holds one message, and never asks for memory that its
// sender has only announced.
class MessageReader
{
public:
    // `most` is the largest body to accept.
    explicit MessageReader(uint32_t most) : m_most(most) {}

    // Where the next bytes of the stream go, and how many came. Ends what next() has returned.
    std::span<uint8_t> space();
    void came(size_t bytes);

    // The next message, if all of it has come. Fails with a usage error when these bytes are no message; the stream
    // cannot be read on then.
    std::optional<Received> next();

    // Whether the stream may end here.
    bool empty() const { return m_taken == m_filled; }

private:
    const uint32_t m_most;
    Bytes m_bytes;
    size_t m_taken = 0, m_filled = 0;
};
