// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A fuzzer's input, read from front to back. Beyond its end there are zeros, so that every input is a whole one.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <vector>

// When a fact does not hold, prints a line and ends the program.
inline void require(bool holds, const char* fact)
{
    if (holds)
        return;
    fprintf(stderr, "Does not hold: %s\n", fact);
    abort();
}

class Input
{
public:
    Input(const uint8_t* data, size_t size) : m_rest(data, size) {}

    size_t left() const { return m_rest.size(); }

    template <typename T = uint8_t> T take()
    {
        T value{};
        const auto bytes = takeSome(sizeof value);
        if (!bytes.empty())
            memcpy(&value, bytes.data(), bytes.size());
        return value;
    }

    int below(int n) { return take<uint8_t>() % n; }
    template <typename T, size_t N> const T& of(const T (&list)[N]) { return list[below(int{N})]; }

    // At most `count` bytes, fewer at the end.
    std::span<const uint8_t> takeSome(size_t count)
    {
        const auto taken = m_rest.first(std::min(count, m_rest.size()));
        m_rest = m_rest.subspan(taken.size());
        return taken;
    }

    // As many bytes as the byte in front of them says.
    std::string text()
    {
        const auto bytes = takeSome(take<uint8_t>());
        return {bytes.begin(), bytes.end()};
    }

    // Fills a large table by repeating a few values, as many as the byte in front of them says.
    template <typename T> void fill(std::span<T> table)
    {
        std::vector<T> few(1 + take<uint8_t>() % 64u);
        for (T& value : few)
            value = take<T>();
        size_t filled = std::min(few.size(), table.size());
        std::copy_n(few.begin(), filled, table.begin());
        for (; filled < table.size(); filled = std::min(2 * filled, table.size()))
            std::copy_n(table.begin(), std::min(filled, table.size() - filled), table.subspan(filled).begin());
    }

private:
    std::span<const uint8_t> m_rest;
};
