// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "amounts.h"

#include <algorithm>
#include <charconv>
#include <span>

#include <CLI/CLI.hpp>

namespace
{

struct Unit {
    const char* name;
    double factor;
};

constexpr Unit kSizes[] = {{"", 1}, {"k", 1e3}, {"M", 1e6}, {"G", 1e9}, {"T", 1e12}};
constexpr Unit kTimes[] = {{"", 1}, {"s", 1}, {"min", 60}, {"h", 3600}};
constexpr double kMost = 1e15; // whole numbers up to here are exact

std::optional<double> amountIn(const std::string& text, std::span<const Unit> units)
{
    double number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number, std::chars_format::fixed);
    const std::string name(rest, end);
    const auto unit = std::ranges::find_if(units, [&](const Unit& one) { return name == one.name; });
    if (error != std::errc{} || unit == units.end() || !(number >= 0 && number * unit->factor <= kMost))
        return std::nullopt;
    return number * unit->factor;
}

} // namespace

std::optional<uint64_t> bytesIn(const std::string& text)
{
    const std::optional<double> bytes = amountIn(text, kSizes);
    return bytes ? std::optional(static_cast<uint64_t>(*bytes)) : std::nullopt;
}

std::optional<double> secondsIn(const std::string& text)
{
    return amountIn(text, kTimes);
}

void addKeepFree(CLI::App& command, std::string& size)
{
    command.add_option("--keep-free", size, "What recordings leave free of their disk, such as 2G (default 512M)")
        ->type_name("SIZE")
        ->check([](const std::string& text) { return bytesIn(text) ? "" : text + " is no size"; });
}
