// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What a character is does not depend on the locale: a plan means the same everywhere.
#include "fault_words.h"

#include <algorithm>

namespace sim
{

static bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

static bool isLetter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

static bool isSpace(char c)
{
    return std::string_view(" \t\n\v\f\r").find(c) != std::string_view::npos;
}

std::vector<Word> cutIntoWords(std::string_view plan)
{
    std::vector<Word> words;
    for (size_t i = 0; i < plan.size();) {
        const size_t start = i;
        const auto take = [&](auto fits) {
            while (i < plan.size() && fits(plan[i]))
                ++i;
        };
        const bool number = isDigit(plan[i]);
        if (plan.substr(i, 2) == "0x" || plan.substr(i, 2) == "0X")
            take([](char c) { return isDigit(c) || isLetter(c); });
        else if (number)
            take([](char c) { return isDigit(c) || c == '.'; });
        else if (isLetter(plan[i]))
            take(isLetter);
        else if (plan[i] == '#')
            take([](char c) { return c != '\n'; });
        else
            ++i;

        std::string text(plan.substr(start, i - start));
        if (text == "\n")
            text.front() = ';';
        if (text[0] == '#' || isSpace(text[0]))
            continue;
        std::transform(text.begin(), text.end(), text.begin(), [](char c) { return isLetter(c) ? c | 0x20 : c; });
        words.push_back({std::move(text), start, number});
    }
    words.push_back({"", plan.size(), false});
    return words;
}

} // namespace sim
