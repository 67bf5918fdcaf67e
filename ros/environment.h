// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The variables by which ROS 2 nodes find each other, as a configuration of Cyclone DDS.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

struct Domain {
    uint32_t id = 0;
    std::string configuration; // fragments of XML; of equal elements the last one counts
    std::vector<std::string> warnings;
};

// ROS_DOMAIN_ID, ROS_LOCALHOST_ONLY (until Humble), ROS_AUTOMATIC_DISCOVERY_RANGE and ROS_STATIC_PEERS (since Iron),
// then CYCLONEDDS_URI. `get` is getenv(). Fails with a usage error for what ROS 2 would not take either.
Domain domainFrom(const std::function<const char*(const char* name)>& get);
