// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// While nobody asks, no frame comes here. So the latest one may be old, and is served only when it is known to be the
// newest.
#include "serve/frames.h"

#include <algorithm>
#include <cstring>

namespace
{

using namespace std::chrono_literals;

constexpr auto kPatience = 1s;
constexpr auto kYoung = 20ms; // there is no newer frame than one that came so lately: an interval is 33 ms or more
constexpr auto kAnswer = 5ms; // a worker that has a newer frame sends it within this time
constexpr const char* kOctets = "application/octet-stream";

std::string prefixed(const vqd_wire_frame& header)
{
    const Message message = messageOf(VQD_WIRE_FRAME, "");
    vqd_wire_prefix prefix = message.prefix;
    prefix.size = static_cast<uint32_t>(sizeof header + header.plane_bytes);
    std::string bytes(sizeof prefix + sizeof header, '\0');
    memcpy(bytes.data(), &prefix, sizeof prefix);
    memcpy(bytes.data() + sizeof prefix, &header, sizeof header);
    return bytes;
}

// Bytes as a frame of Zstandard (RFC 8878) that holds them as they are. Frames of Zstandard may follow each other, so
// what the worker's packing has made can come next.
std::string zstdFrame(const std::string& bytes)
{
    const auto block = static_cast<uint32_t>(bytes.size() << 3 | 1); // the last block, raw
    const char start[] = {'\x28',
                          '\xb5',
                          '\x2f',
                          '\xfd',
                          '\x20', // one segment, its size in one byte
                          static_cast<char>(bytes.size()),
                          static_cast<char>(block),
                          static_cast<char>(block >> 8),
                          static_cast<char>(block >> 16)};
    return std::string(start, sizeof start) + bytes;
}

} // namespace

Frames::Frames(AnswerTo answer)
    : m_answer(std::move(answer)), m_latest([this](const Body& frame) { return packed(frame); })
{
}

// Some may have waited since before.
void Frames::connected(std::function<void(uint64_t after)> pull, Clock::time_point now)
{
    m_pull = std::move(pull);
    pullIfNeeded(now);
}

void Frames::came(const Received& message, Clock::time_point now)
{
    const vqd_wire_frame header = frameIn(message.body).header;
    const std::shared_ptr<Bytes> body = m_pool.take();
    body->assign(message.body.begin(), message.body.end());
    m_pulled.reset();
    m_came = now;
    m_session = header.session;
    m_latest.set(header.sequence, body);
    std::erase_if(m_waiting, [this](const Waiting& waiting) {
        const bool served = isServed(waiting.wish);
        if (served)
            m_answer(waiting.wish.request, answer(waiting.wish.small));
        return served;
    });
    pullIfNeeded(now);
}

void Frames::disconnected()
{
    m_pull = nullptr;
    m_pulled.reset();
    m_session = 0;
    m_latest.set(0, nullptr);
}

void Frames::want(const FrameWish& wish, Clock::time_point now)
{
    if (isServed(wish) && isNewest(now)) {
        m_answer(wish.request, answer(wish.small));
        return;
    }
    m_waiting.push_back({wish, now + kPatience});
    pullIfNeeded(now);
}

std::optional<Frames::Clock::time_point> Frames::giveUp(Clock::time_point now)
{
    std::optional<Clock::time_point> next;
    std::erase_if(m_waiting, [&](const Waiting& waiting) {
        if (waiting.until <= now)
            m_answer(waiting.wish.request, {.status = 204, .type = nullptr});
        else
            next = std::min(next.value_or(waiting.until), waiting.until);
        return waiting.until <= now;
    });
    return next;
}

bool Frames::isNewest(Clock::time_point now) const
{
    return now - m_came < kYoung || (m_pulled && now - *m_pulled > kAnswer);
}

// The latest frame counts as new for those who have not seen it, if the worker has no newer one.
void Frames::pullIfNeeded(Clock::time_point now)
{
    if (!m_pull || m_waiting.empty())
        return;
    const bool isNewToSome = std::ranges::any_of(m_waiting, [this](const Waiting& one) { return isServed(one.wish); });
    if (isNewToSome) {
        m_pulled.reset();
        m_pull(m_latest.sequence() - 1);
    } else if (!m_pulled) {
        m_pulled = now;
        m_pull(m_latest.sequence());
    }
}

Answer Frames::answer(bool small)
{
    const Body whole = m_latest.body(false);
    vqd_wire_frame header = frameIn(*whole).header;
    const Body body = small ? m_latest.body(true) : whole;
    if (body == whole) {
        return {.type = kOctets, .text = prefixed(header).substr(0, sizeof(vqd_wire_prefix)), .body = whole};
    }
    header.flags |= VQD_WIRE_PACKED;
    return {.type = kOctets, .text = zstdFrame(prefixed(header)), .body = body, .encoding = "zstd"};
}

Body Frames::packed(const Body& frame)
{
    static_assert(sizeof(vqd_wire_frame) % alignof(uint16_t) == 0);
    const vqd_wire_frame header = frameIn(*frame).header;
    const auto* const planes = reinterpret_cast<const uint16_t*>(frame->data() + sizeof header);
    const size_t pixels = size_t{header.width} * header.height;
    const std::span<const uint8_t> packed =
        m_packing.pack({std::span(planes, pixels), std::span(planes + pixels, pixels)});
    if (packed.empty())
        return frame;
    const std::shared_ptr<Bytes> body = m_pool.take();
    body->assign(packed.begin(), packed.end());
    return body;
}
