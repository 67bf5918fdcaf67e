// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A prefix is judged before anything that it announces is waited for.
#include "worker/messages.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "host/failure.h"

namespace
{

template <typename Record> Record recordAt(std::span<const uint8_t> bytes)
{
    Record record;
    memcpy(&record, bytes.data(), sizeof record);
    return record;
}

void requirePrefix(const vqd_wire_prefix& prefix, uint32_t most)
{
    if (memcmp(prefix.magic, VQD_WIRE_MAGIC, sizeof prefix.magic) != 0)
        throw Failure(kUsage, "this is not the wire of a camera's worker");
    if (prefix.version != VQD_WIRE_VERSION)
        throw Failure(kUsage, "this end speaks version " + std::to_string(VQD_WIRE_VERSION) + " of the wire, not " +
                                  std::to_string(prefix.version));
    if (prefix.size > most)
        throw Failure(kUsage, "a message of " + std::to_string(prefix.size) + " bytes is announced, but no more than " +
                                  std::to_string(most) + " are taken");
}

} // namespace

Message messageOf(uint16_t kind, Body body, uint32_t request)
{
    if (body->size() > VQD_WIRE_MOST_MESSAGE)
        throw Failure(kFailed, "a message of " + std::to_string(body->size()) + " bytes is too large for the wire");
    Message message{{{}, VQD_WIRE_VERSION, kind, static_cast<uint32_t>(body->size()), request}, std::move(body)};
    memcpy(message.prefix.magic, VQD_WIRE_MAGIC, sizeof message.prefix.magic);
    return message;
}

Message messageOf(uint16_t kind, std::string_view text, uint32_t request)
{
    return messageOf(kind, std::make_shared<const Bytes>(text.begin(), text.end()), request);
}

void appendFrame(Bytes& into, const vqd_wire_frame& header, std::initializer_list<std::span<const uint8_t>> planes)
{
    const auto* const start = reinterpret_cast<const uint8_t*>(&header);
    into.reserve(into.size() + sizeof header + header.plane_bytes);
    into.insert(into.end(), start, start + sizeof header);
    for (const std::span<const uint8_t> plane : planes)
        into.insert(into.end(), plane.begin(), plane.end());
}

ReceivedFrame frameIn(std::span<const uint8_t> body)
{
    if (body.size() < sizeof(vqd_wire_frame))
        throw Failure(kUsage, "a frame of " + std::to_string(body.size()) + " bytes has no whole header");
    const auto header = recordAt<vqd_wire_frame>(body);
    const std::span<const uint8_t> planes = body.subspan(sizeof header);
    const size_t whole = size_t{2} * header.width * header.height * sizeof(uint16_t);
    const bool packed = (header.flags & VQD_WIRE_PACKED) != 0;
    if (header.plane_bytes != planes.size() || (packed ? planes.size() > whole : planes.size() != whole))
        throw Failure(kUsage, "a frame's planes have " + std::to_string(planes.size()) +
                                  " bytes, which is not what its header says");
    return {header, planes};
}

vqd_wire_pull pullIn(std::span<const uint8_t> body)
{
    if (body.size() != sizeof(vqd_wire_pull))
        throw Failure(kUsage, "a pull has " + std::to_string(sizeof(vqd_wire_pull)) + " bytes, not " +
                                  std::to_string(body.size()));
    return recordAt<vqd_wire_pull>(body);
}

std::span<uint8_t> MessageReader::space()
{
    constexpr size_t kPart = 64 << 10;
    if (m_taken > 0) {
        m_filled -= m_taken;
        memmove(m_bytes.data(), m_bytes.data() + m_taken, m_filled);
        m_taken = 0;
    }
    if (m_bytes.size() < m_filled + kPart)
        m_bytes.resize(m_filled + kPart);
    return std::span(m_bytes).subspan(m_filled);
}

void MessageReader::came(size_t bytes)
{
    m_filled += bytes;
}

std::optional<Received> MessageReader::next()
{
    const std::span<const uint8_t> all = std::span(m_bytes).first(m_filled).subspan(m_taken);
    if (all.size() < sizeof(vqd_wire_prefix))
        return std::nullopt;
    const auto prefix = recordAt<vqd_wire_prefix>(all);
    requirePrefix(prefix, m_most);
    const size_t whole = sizeof prefix + prefix.size;
    if (all.size() < whole)
        return std::nullopt;
    m_taken += whole;
    return Received{prefix, all.first(whole).subspan(sizeof prefix)};
}
