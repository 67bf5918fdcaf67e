// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Topics as an implementation of DDS reads them that is not the one which publishes them: Fast DDS, with a CDR of its
// own. Loopback only.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include <fastcdr/Cdr.h>
#include <fastdds/dds/domain/DomainParticipant.hpp>
#include <fastdds/dds/domain/DomainParticipantFactory.hpp>
#include <fastdds/dds/domain/DomainParticipantListener.hpp>
#include <fastdds/dds/subscriber/DataReader.hpp>
#include <fastdds/dds/subscriber/DataReaderListener.hpp>
#include <fastdds/dds/subscriber/SampleInfo.hpp>
#include <fastdds/dds/subscriber/Subscriber.hpp>
#include <fastdds/dds/topic/TopicDataType.hpp>
#include <fastdds/rtps/transport/UDPv4TransportDescriptor.h>
#include <fastrtps/utils/IPLocator.h>

namespace fast
{

namespace dds = eprosima::fastdds::dds;
namespace rtps = eprosima::fastrtps::rtps;
using eprosima::fastcdr::Cdr;
using Bytes = std::vector<char>;

// Hands out the payload as it came.
class PayloadType : public dds::TopicDataType
{
public:
    explicit PayloadType(const std::string& name)
    {
        constexpr uint32_t kMost = 2 << 20;
        setName(name.c_str());
        m_typeSize = kMost;
        auto_fill_type_object(false);
        auto_fill_type_information(false);
    }
    bool serialize(void*, rtps::SerializedPayload_t*) override { return false; }
    bool deserialize(rtps::SerializedPayload_t* payload, void* data) override
    {
        static_cast<Bytes*>(data)->assign(payload->data, payload->data + payload->length);
        return true;
    }
    std::function<uint32_t()> getSerializedSizeProvider(void*) override
    {
        return [] { return 0U; };
    }
    void* createData() override { return new Bytes; }
    void deleteData(void* data) override { delete static_cast<Bytes*>(data); }
    bool getKey(void*, rtps::InstanceHandle_t*, bool) override { return false; }
};

class Participant
{
public:
    // `socketBytes` is the size to ask for of the socket's buffer; 0 for the system's own.
    Participant(uint32_t domain, uint32_t socketBytes)
    {
        dds::DomainParticipantQos qos;
        const auto udp = std::make_shared<eprosima::fastdds::rtps::UDPv4TransportDescriptor>();
        udp->interfaceWhiteList = {"127.0.0.1"};
        udp->maxInitialPeersRange = 33;
        udp->receiveBufferSize = socketBytes;
        qos.transport().use_builtin_transports = false;
        qos.transport().user_transports.push_back(udp);
        rtps::Locator_t loopback;
        rtps::IPLocator::setIPv4(loopback, "127.0.0.1");
        qos.wire_protocol().builtin.initialPeersList.push_back(loopback);
        qos.wire_protocol().builtin.metatrafficUnicastLocatorList.push_back(loopback); // in the place of multicast
        m_participant = dds::DomainParticipantFactory::get_instance()->create_participant(domain, qos, &m_discovery,
                                                                                          dds::StatusMask::none());
        if (m_participant == nullptr)
            throw std::runtime_error("no participant");
        m_subscriber = m_participant->create_subscriber(dds::SUBSCRIBER_QOS_DEFAULT);
    }
    ~Participant()
    {
        m_participant->delete_contained_entities();
        dds::DomainParticipantFactory::get_instance()->delete_participant(m_participant);
    }
    struct Writer {
        std::string type, userData;
    };
    std::map<std::string, Writer> writers() // that were found, by topic
    {
        const std::lock_guard lock(m_discovery.mutex);
        return m_discovery.found;
    }
    Participant(const Participant&) = delete;
    Participant& operator=(const Participant&) = delete;

    // Messages, and those of them that ended too soon. One did once, on a busy machine; why is not known.
    struct Counts {
        size_t taken = 0, cut = 0;
    };
    Counts counts()
    {
        const std::lock_guard lock(m_mutex);
        return m_counts;
    }

    // `take` is called from a thread of Fast DDS, for one message at a time, with its payload and how that is decoded.
    using Take = std::function<void(const Bytes& payload, Cdr& cdr)>;
    void read(const std::string& topic, const std::string& type, bool reliable, bool latched, Take take)
    {
        const dds::TypeSupport support(new PayloadType(type));
        support.register_type(m_participant);
        dds::DataReaderQos qos;
        qos.reliability().kind = reliable ? dds::RELIABLE_RELIABILITY_QOS : dds::BEST_EFFORT_RELIABILITY_QOS;
        qos.durability().kind = latched ? dds::TRANSIENT_LOCAL_DURABILITY_QOS : dds::VOLATILE_DURABILITY_QOS;
        qos.history().kind = dds::KEEP_LAST_HISTORY_QOS;
        qos.history().depth = 5;
        auto* const description = m_participant->create_topic("rt" + topic, type, dds::TOPIC_QOS_DEFAULT);
        m_listeners.push_back(std::make_unique<Listener>(*this, std::move(take)));
        if (m_subscriber->create_datareader(description, qos, m_listeners.back().get()) == nullptr)
            throw std::runtime_error("no reader of " + topic);
    }

private:
    class Listener : public dds::DataReaderListener
    {
    public:
        Listener(Participant& participant, Take take) : m_participant(participant), m_take(std::move(take)) {}
        void on_data_available(dds::DataReader* reader) override
        {
            Bytes bytes;
            dds::SampleInfo info;
            while (reader->take_next_sample(&bytes, &info) == ReturnCode_t::RETCODE_OK) {
                if (!info.valid_data)
                    continue;
                eprosima::fastcdr::FastBuffer buffer(bytes.data(), bytes.size());
                Cdr cdr(buffer, Cdr::DEFAULT_ENDIAN, Cdr::DDS_CDR);
                const std::lock_guard lock(m_participant.m_mutex);
                ++m_participant.m_counts.taken;
                try {
                    cdr.read_encapsulation();
                    m_take(bytes, cdr);
                } catch (const eprosima::fastcdr::exception::NotEnoughMemoryException&) {
                    ++m_participant.m_counts.cut;
                }
            }
        }

    private:
        Participant& m_participant;
        const Take m_take;
    };

    // What publishers tell of themselves.
    class Discovery : public dds::DomainParticipantListener
    {
    public:
        void on_publisher_discovery(dds::DomainParticipant*, rtps::WriterDiscoveryInfo&& info) override
        {
            const auto& data = info.info.m_qos.m_userData.data_vec();
            const std::lock_guard lock(mutex);
            found[info.info.topicName().to_string()] = {info.info.typeName().to_string(),
                                                        std::string(data.begin(), data.end())};
        }
        std::mutex mutex;
        std::map<std::string, Writer> found;
    } m_discovery; // before the participant that calls it, too

    std::mutex m_mutex;
    Counts m_counts;
    std::vector<std::unique_ptr<Listener>> m_listeners; // before the participant that calls them
    dds::DomainParticipant* m_participant = nullptr;
    dds::Subscriber* m_subscriber = nullptr;
};

} // namespace fast
