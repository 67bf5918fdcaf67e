// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// CDR, the encoding of messages in DDS (OMG DDS-XTypes 1.3, 7.4: XCDR version 1, little-endian): four bytes that name
// the encoding, then the fields in their order, each aligned to its size.
#pragma once

#include <bit>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "host/failure.h"

namespace msg
{

static_assert(std::endian::native == std::endian::little, "values are copied as they are");

template <typename T>
concept CdrNumber = std::integral<T> || std::floating_point<T>;

inline constexpr size_t kCdrHeader = 4; // alignment counts from behind it

constexpr size_t aligned(size_t offset, size_t size)
{
    return kCdrHeader + (offset - kCdrHeader + size - 1) / size * size;
}

// Writes a message into bytes that are kept from message to message.
class CdrWriter
{
public:
    void begin() { m_bytes.assign({0, 1, 0, 0}); }

    template <CdrNumber T> void numbers(std::span<const T> values)
    {
        if (values.empty())
            return;
        m_bytes.resize(aligned(m_bytes.size(), sizeof(T)));
        const auto* first = reinterpret_cast<const uint8_t*>(values.data());
        m_bytes.insert(m_bytes.end(), first, first + values.size_bytes());
    }

    std::span<const uint8_t> bytes() const { return m_bytes; }

private:
    std::vector<uint8_t> m_bytes;
};

// Reads a message whose bytes are the caller's. Fails with a sentence where they end too early.
class CdrReader
{
public:
    explicit CdrReader(std::span<const uint8_t> bytes) : m_bytes(bytes)
    {
        if (bytes.size() < kCdrHeader || bytes[0] != 0 || bytes[1] != 1)
            throw Failure(kUsage, "a message is not in little-endian CDR");
    }

    template <CdrNumber T> void numbers(std::span<T> values)
    {
        if (values.empty())
            return;
        const size_t offset = aligned(m_offset, sizeof(T));
        if (offset > m_bytes.size() || m_bytes.size() - offset < values.size_bytes())
            throw Failure(kUsage, "a message ends before its fields do");
        std::memcpy(values.data(), m_bytes.data() + offset, values.size_bytes());
        m_offset = offset + values.size_bytes();
    }

    size_t left() const { return m_bytes.size() - m_offset; }

private:
    std::span<const uint8_t> m_bytes;
    size_t m_offset = kCdrHeader;
};

} // namespace msg
