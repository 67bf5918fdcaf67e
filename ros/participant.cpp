// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Names and qualities of service as ROS 2 nodes expect them of a sensor (REP 2003).
#include "ros/participant.h"

#include "host/failure.h"
#include "ros/payload_type.h"

namespace
{

dds_entity_t require(dds_entity_t result, const std::string& what)
{
    if (result < 0)
        throw Failure(kFailed, what + ": " + dds_strretcode(-result));
    return result;
}

using Qos = std::unique_ptr<dds_qos_t, void (*)(dds_qos_t*)>;

Qos qosOf(const msg::MessageType& type, Durability durability)
{
    constexpr int32_t kDepth = 5;
    constexpr dds_duration_t kMostWait = DDS_MSECS(5); // for readers that do not keep up; the next frame is near
    Qos qos(dds_create_qos(), dds_delete_qos);
    const bool latched = durability == Durability::latched;
    dds_qset_reliability(qos.get(), DDS_RELIABILITY_RELIABLE, kMostWait);
    dds_qset_history(qos.get(), DDS_HISTORY_KEEP_LAST, latched ? 1 : kDepth);
    dds_qset_durability(qos.get(), latched ? DDS_DURABILITY_TRANSIENT_LOCAL : DDS_DURABILITY_VOLATILE);
    dds_qset_writer_data_lifecycle(qos.get(), false);
    // Since Iron, ROS 2 looks here for the hash of the type.
    const std::string userData = std::string("typehash=") + type.hash + ";";
    dds_qset_userdata(qos.get(), userData.data(), userData.size());
    return qos;
}

} // namespace

std::string ddsTypeName(const std::string& name)
{
    const size_t package = name.find('/'), type = name.rfind('/');
    return name.substr(0, package) + "::msg::dds_::" + name.substr(type + 1) + "_";
}

Participant::Participant(const Domain& domain)
    : m_domain(require(dds_create_domain(domain.id, domain.configuration.c_str()),
                       "Cyclone DDS does not accept its configuration")),
      m_participant(dds_create_participant(domain.id, nullptr, nullptr))
{
    if (m_participant < 0) {
        dds_delete(m_domain);
        require(m_participant, "Cyclone DDS does not start in domain " + std::to_string(domain.id));
    }
}

Participant::~Participant()
{
    dds_delete(m_domain);
}

Writer::Writer(const Participant& participant, const std::string& topic, const msg::MessageType& type,
               Durability durability)
{
    m_type = newPayloadType(ddsTypeName(type.name).c_str());
    const Qos qos = qosOf(type, durability);
    const dds_entity_t entity =
        dds_create_topic_sertype(participant.entity(), ("rt" + topic).c_str(), &m_type, nullptr, nullptr, nullptr);
    if (entity < 0)
        ddsi_sertype_unref(m_type);
    require(entity, "the topic " + topic + " cannot be made");
    m_writer = require(dds_create_writer(participant.entity(), entity, qos.get(), nullptr),
                       "the topic " + topic + " cannot be written");
}

bool Writer::hasReaders() const
{
    dds_publication_matched_status_t status;
    return dds_get_publication_matched_status(m_writer, &status) == DDS_RETCODE_OK && status.current_count > 0;
}

void Writer::write(std::span<const uint8_t> cdr)
{
    ddsi_serdata* const payload = newPayload(m_type, cdr);
    if (payload == nullptr || dds_writecdr(m_writer, payload) != DDS_RETCODE_OK)
        ++m_failures;
}
