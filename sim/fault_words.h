// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The words of a fault plan's text.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace sim
{

struct Word {
    std::string text; // lower case; empty at the end of the plan
    size_t at;        // in the plan, from 0
    bool number;      // starts with a digit
};

// Words, numbers, ":" "," ";". The end of a line is a ";", a comment is nothing. A number and its unit are two words.
// The last word is the end of the plan.
std::vector<Word> cutIntoWords(std::string_view plan);

} // namespace sim
