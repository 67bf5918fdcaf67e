// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What a camera is called in ROS 2: the first part of the names of its topics.
#pragma once

#include <string>
#include <string_view>

// Letters, digits and underscores, and no digit first.
bool isTopicName(std::string_view name);
inline constexpr char kTopicNameRule[] =
    "a name in ROS 2 has up to 200 letters, digits and underscores, and does not begin with a digit";

// Of a camera that was given none. A serial number by itself would begin with a digit.
std::string usualTopicName(const std::string& serial);
