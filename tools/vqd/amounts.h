// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Sizes and times as people write them: 500M, 2G, 90s, 10min, 1h.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace CLI
{
class App;
}

// Nothing for what is none. A number without a unit is in bytes, or in seconds.
std::optional<uint64_t> bytesIn(const std::string& text);
std::optional<double> secondsIn(const std::string& text);

// The option of commands that record.
void addKeepFree(CLI::App& command, std::string& size);
