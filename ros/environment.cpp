// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What Cyclone is told resembles what ROS 2 tells it for the same variables, or the two would not find each other.
#include "ros/environment.h"

#include <charconv>
#include <unistd.h>

#include "host/failure.h"

namespace
{

constexpr uint32_t kMostDomain = 232; // the ports of a higher one would be above 65535

// Without multicast, participants of a machine are found by trying the ports of so many.
constexpr char kSearch[] = "<ParticipantIndex>auto</ParticipantIndex><MaxAutoParticipantIndex>32"
                           "</MaxAutoParticipantIndex>";
constexpr char kNoMulticast[] = "<AllowMulticast>false</AllowMulticast>";
constexpr char kLoopback[] = "<Interfaces><NetworkInterface address=\"127.0.0.1\"/></Interfaces>";

enum class Range { subnet, localhost, off, unchanged };

constexpr struct {
    const char* name;
    Range range;
} kRanges[] = {
    {"", Range::subnet},
    {"SUBNET", Range::subnet},
    {"LOCALHOST", Range::localhost},
    {"OFF", Range::off},
    {"SYSTEM_DEFAULT", Range::unchanged},
};

uint32_t domainId(const std::string& text)
{
    uint32_t id = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, id);
    if (!text.empty() && (error != std::errc() || stop != end || id > kMostDomain))
        throw Failure(kUsage,
                      "ROS_DOMAIN_ID is a number from 0 to " + std::to_string(kMostDomain) + ", not '" + text + "'");
    return id;
}

std::string peer(const std::string& address)
{
    if (address.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.:-_") !=
        std::string::npos)
        throw Failure(kUsage, "ROS_STATIC_PEERS has an address that is none: '" + address + "'");
    return "<Peer address=\"" + address + "\"/>";
}

// Separated by semicolons.
std::string peers(const std::string& list)
{
    std::string xml;
    for (size_t begin = 0; begin < list.size();) {
        const size_t end = std::min(list.find(';', begin), list.size());
        if (end > begin)
            xml += peer(list.substr(begin, end - begin));
        begin = end + 1;
    }
    return xml;
}

std::string fragment(const std::string& general, const std::string& discovery)
{
    return "<CycloneDDS><Domain><General>" + general + "</General><Discovery>" + discovery +
           "</Discovery></Domain></CycloneDDS>";
}

std::string inElement(const std::string& peers)
{
    return peers.empty() ? "" : "<Peers>" + peers + "</Peers>";
}

Range rangeNamed(const std::string& name, Domain& domain)
{
    for (const auto& row : kRanges)
        if (name == row.name)
            return row.range;
    domain.warnings.push_back("ROS_AUTOMATIC_DISCOVERY_RANGE is not '" + name +
                              "' but SUBNET, LOCALHOST, OFF or SYSTEM_DEFAULT; LOCALHOST is assumed, as ROS 2 does");
    return Range::localhost;
}

} // namespace

Domain domainFrom(const std::function<const char*(const char* name)>& get)
{
    const auto text = [&](const char* name) {
        const char* const value = get(name);
        return std::string(value != nullptr ? value : "");
    };
    Domain domain;
    domain.id = domainId(text("ROS_DOMAIN_ID"));
    const Range range = rangeNamed(text("ROS_AUTOMATIC_DISCOVERY_RANGE"), domain);
    const std::string list = text("ROS_STATIC_PEERS");
    if (text("ROS_LOCALHOST_ONLY") == "1") { // it prevails
        domain.configuration = fragment(std::string(kLoopback) + kNoMulticast, kSearch + inElement(peer("127.0.0.1")));
    } else if (range == Range::subnet) {
        domain.configuration = fragment("", kSearch + inElement(peers(list)));
    } else if (range == Range::localhost) {
        domain.configuration = fragment(kNoMulticast, kSearch + inElement(peer("localhost") + peers(list)));
    } else if (range == Range::off) { // nobody else has this tag
        domain.configuration = fragment(kNoMulticast, "<ParticipantIndex>none</ParticipantIndex><Tag>vqd_" +
                                                          std::to_string(getpid()) + "</Tag>");
    }
    if (!list.empty() && (range == Range::off || range == Range::unchanged))
        domain.warnings.emplace_back("ROS_STATIC_PEERS has no effect with this ROS_AUTOMATIC_DISCOVERY_RANGE");
    if (const std::string own = text("CYCLONEDDS_URI"); !own.empty())
        domain.configuration += (domain.configuration.empty() ? "" : ",") + own;
    return domain;
}
