// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// How a field of any type is written and read as CDR. The types themselves are generated from recording/msg/.
#pragma once

#include <array>

#include "recording/cdr.h"

namespace msg
{

template <CdrNumber T> void put(CdrWriter& to, T value)
{
    to.numbers(std::span<const T>(&value, 1));
}

inline void put(CdrWriter& to, const std::string& text)
{
    put(to, static_cast<uint32_t>(text.size() + 1));
    to.numbers(std::span<const char>(text.c_str(), text.size() + 1));
}

template <typename T>
requires(!CdrNumber<T>) void put(CdrWriter& to, const T& message)
{
    encode(to, message);
}

template <CdrNumber T, size_t N> void put(CdrWriter& to, const std::array<T, N>& values)
{
    to.numbers(std::span<const T>(values));
}

template <typename T> void put(CdrWriter& to, const std::vector<T>& values)
{
    put(to, static_cast<uint32_t>(values.size()));
    if constexpr (CdrNumber<T>)
        to.numbers(std::span<const T>(values));
    else
        for (const T& value : values)
            put(to, value);
}

template <CdrNumber T> void get(CdrReader& from, T& value)
{
    if constexpr (std::same_as<T, bool>) {
        uint8_t byte = 0;
        get(from, byte);
        value = byte != 0;
    } else {
        from.numbers(std::span<T>(&value, 1));
    }
}

// Of a list of messages. Each takes far more memory than bytes of the message, and no sender here has as many.
inline constexpr size_t kMostElements = 1000;

// How many elements follow: no more than there are bytes left for.
inline size_t count(CdrReader& from)
{
    uint32_t count = 0;
    get(from, count);
    if (count > from.left())
        throw Failure(kUsage, "a message ends before its fields do");
    return count;
}

inline void get(CdrReader& from, std::string& text)
{
    text.resize(count(from));
    from.numbers(std::span<char>(text));
    if (!text.empty() && text.back() == '\0') // some writers leave it out
        text.pop_back();
}

template <typename T>
requires(!CdrNumber<T>) void get(CdrReader& from, T& message)
{
    decode(from, message);
}

template <CdrNumber T, size_t N> void get(CdrReader& from, std::array<T, N>& values)
{
    from.numbers(std::span<T>(values));
}

template <typename T> void get(CdrReader& from, std::vector<T>& values)
{
    const size_t elements = count(from);
    if constexpr (CdrNumber<T>) {
        values.resize(elements);
        from.numbers(std::span<T>(values));
    } else {
        if (elements > kMostElements)
            throw Failure(kUsage, "a message claims a list of " + std::to_string(elements) + " elements");
        values.resize(elements);
        for (T& value : values)
            get(from, value);
    }
}

// A message as it is stored and sent; valid until the writer's next one.
template <typename T> std::span<const uint8_t> toCdr(CdrWriter& writer, const T& message)
{
    writer.begin();
    encode(writer, message);
    return writer.bytes();
}

template <typename T> void fromCdr(std::span<const uint8_t> bytes, T& message)
{
    CdrReader reader(bytes);
    decode(reader, message);
}

} // namespace msg
