// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The fields of records: little-endian numbers, and texts and lists behind the number of their bytes.
#pragma once

#include <algorithm>
#include <bit>
#include <concepts>
#include <cstring>
#include <span>

#include "host/bytes.h"
#include "host/failure.h"
#include "recording/mcap.h"

namespace mcap
{

static_assert(std::endian::native == std::endian::little, "numbers are copied as they are");

template <std::unsigned_integral T> void add(Bytes& to, T value)
{
    const auto* first = reinterpret_cast<const uint8_t*>(&value);
    to.insert(to.end(), first, first + sizeof value);
}

inline void add(Bytes& to, std::span<const uint8_t> bytes)
{
    to.insert(to.end(), bytes.begin(), bytes.end());
}

inline void add(Bytes& to, std::string_view text)
{
    add(to, static_cast<uint32_t>(text.size()));
    to.insert(to.end(), text.begin(), text.end());
}

// Something behind the number of its bytes, which is only known afterwards.
template <std::unsigned_integral Size, typename Fill> void addCounted(Bytes& to, const Fill& fill)
{
    const size_t at = to.size();
    add(to, Size{});
    fill();
    const auto size = static_cast<Size>(to.size() - at - sizeof(Size));
    std::memcpy(to.data() + at, &size, sizeof size);
}

template <typename Fill> void addRecord(Bytes& to, Opcode opcode, const Fill& fill)
{
    to.push_back(static_cast<uint8_t>(opcode));
    addCounted<uint64_t>(to, fill);
}

inline void add(Bytes& to, const Names& names)
{
    addCounted<uint32_t>(to, [&] {
        for (const auto& [name, value] : names) {
            add(to, name);
            add(to, value);
        }
    });
}

// Takes fields from bytes that are the caller's. Fails where they end too early.
class Fields
{
public:
    explicit Fields(std::span<const uint8_t> bytes) : m_left(bytes) {}

    template <std::unsigned_integral T> T number()
    {
        T value;
        std::memcpy(&value, bytes(sizeof value).data(), sizeof value);
        return value;
    }
    std::span<const uint8_t> bytes(uint64_t count)
    {
        if (count > m_left.size())
            throw Failure(kUsage, "a record ends before its fields do");
        const auto taken = m_left.first(count);
        m_left = m_left.subspan(count);
        return taken;
    }
    template <std::unsigned_integral Size> std::span<const uint8_t> counted() { return bytes(number<Size>()); }
    std::string text(size_t most = kMostUnpacked)
    {
        const auto taken = counted<uint32_t>();
        if (taken.size() > most)
            throw Failure(kUsage, "a record claims a text of " + std::to_string(taken.size()) + " bytes");
        return {taken.begin(), taken.end()};
    }
    // What may stand in a line on a terminal.
    std::string name()
    {
        const std::string name = text(kMostName);
        if (std::ranges::any_of(name, [](char c) { return (c >= 0 && c < ' ') || c == '\x7F'; }))
            throw Failure(kUsage, "a record has a name with control characters");
        return name;
    }
    Names names()
    {
        Names names;
        for (Fields list(counted<uint32_t>()); !list.empty();) {
            const std::string name = list.text();
            names[name] = list.text();
        }
        return names;
    }
    std::span<const uint8_t> rest() { return bytes(m_left.size()); }
    bool empty() const { return m_left.empty(); }
    size_t left() const { return m_left.size(); }

private:
    std::span<const uint8_t> m_left;
};

// A record of a chunk, whose length is bounded by what is left.
struct Inner {
    Opcode opcode;
    std::span<const uint8_t> content;
};

inline Inner innerRecord(Fields& records)
{
    const auto opcode = static_cast<Opcode>(records.number<uint8_t>());
    return {opcode, records.counted<uint64_t>()};
}

} // namespace mcap
