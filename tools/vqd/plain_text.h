// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A value of anybody's making, fit for a line on a terminal.
#pragma once

#include <algorithm>
#include <string>

inline std::string plain(std::string value)
{
    std::ranges::replace_if(
        value, [](char c) { return (c >= 0 && c < ' ') || c == '\x7F'; }, '?');
    return value;
}
