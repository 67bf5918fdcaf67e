// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "host/topic_name.h"

bool isTopicName(std::string_view name)
{
    constexpr size_t kMost = 200; // a whole topic has 247 at most
    constexpr std::string_view kDigits = "0123456789";
    return !name.empty() && name.size() <= kMost && kDigits.find(name[0]) == std::string_view::npos &&
           name.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_0123456789") ==
               std::string_view::npos;
}

std::string usualTopicName(const std::string& serial)
{
    return "vqd_" + (serial.empty() ? "unknown" : serial);
}
