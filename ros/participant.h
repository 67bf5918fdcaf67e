// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Writers of ROS 2 topics on Cyclone DDS.
#pragma once

#include <memory>
#include <string>

#include <dds/dds.h>

#include "recording/cdr_fields.h"
#include "recording/message_type.h"
#include "ros/environment.h"

// In a domain of DDS. It starts threads, so signals are to be masked before.
class Participant
{
public:
    explicit Participant(const Domain& domain);
    ~Participant(); // and all that was made of it
    Participant(const Participant&) = delete;
    Participant& operator=(const Participant&) = delete;
    dds_entity_t entity() const { return m_participant; }

private:
    dds_entity_t m_domain, m_participant;
};

enum class Durability {
    stream, // the last five messages, for readers that are there
    latched // the last message, also for readers that come later, as listeners of transforms want it
};

class Writer
{
public:
    // `topic` is the name that ROS 2 shows, from the slash on.
    Writer(const Participant& participant, const std::string& topic, const msg::MessageType& type,
           Durability durability);

    // Whether anybody listens at this moment.
    bool hasReaders() const;

    // Does not wait for readers. Counts a message that DDS did not take.
    template <typename T> void write(const T& message) { write(msg::toCdr(m_cdr, message)); }

    uint64_t failures() const { return m_failures; }

private:
    void write(std::span<const uint8_t> cdr);

    dds_entity_t m_writer = 0;
    struct ddsi_sertype* m_type = nullptr; // of the topic
    msg::CdrWriter m_cdr;
    uint64_t m_failures = 0;
};

// The name of a type in DDS: sensor_msgs/msg/Image is sensor_msgs::msg::dds_::Image_.
std::string ddsTypeName(const std::string& name);
