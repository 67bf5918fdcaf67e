// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What umockdev is told of one device: its node, its entry in sysfs, and who answers the ioctls of its clients.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <umockdev.h>

#include "bus.h"
#include "bus_clock.h"
#include "device_node.h"
#include "usb_port.h"

namespace sim
{

// What the devices share with the thread of their bus.
struct BusShare {
    using Clock = BusClock::Clock;

    explicit BusShare(const BusOptions& options) : clock(options.timeScale), capabilities(options.capabilities) {}

    const BusClock clock;
    const uint32_t capabilities;
    std::mutex mutex; // guards the devices and the cameras
    std::condition_variable wake;
};

// Lives at one address, and longer than it is plugged in: clients that still hold it open get their answers from here.
// umockdev's thread calls back as long as a client is open, which may be longer than there is a bus. So what is called
// shares the device, and the device shares what the bus has for all.
class UmockdevDevice : public std::enable_shared_from_this<UmockdevDevice>
{
public:
    // Of a camera, or of the root hub without one. The device shows once it is announced.
    UmockdevDevice(UMockdevTestbed* testbed, std::shared_ptr<BusShare> share, Camera* camera, unsigned address,
                   std::string sysPath);
    UmockdevDevice(const UmockdevDevice&) = delete;
    UmockdevDevice& operator=(const UmockdevDevice&) = delete;

    // Throws when umockdev refuses the device, which then counts as gone.
    void announce(const std::string& attributes, const std::vector<uint8_t>& descriptors);

    // The steps of an unplug. The event must be sent without the lock, because clients may act on it at once; the
    // transfers fail before it or with the end. The node stays until the end, for the preload loses a file with each
    // one that it cannot open.
    void failTransfers();
    void announceUnplug();
    void vanish();

    // Nobody is answered at this address any more, but for calls that are under way. To be called once, before the bus
    // forgets the device.
    void retire();

    // With the lock held: lets clients reap what has completed.
    void update() { m_node.setReady(port.reapable()); }

    // When the device may be forgotten, for it is gone and no client has it open.
    std::optional<BusShare::Clock::time_point> unusedFrom() const;

    unsigned address() const { return m_address; }

    UsbPort port;

private:
    void listen(const char* signal, GCallback answer);
    static gboolean onIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer shared);
    static void onClient(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer shared);
    static void onClientGone(gpointer shared, GObject* client);

    UMockdevTestbed* m_testbed;
    const std::shared_ptr<BusShare> m_share;
    unsigned m_address;
    std::string m_sysPath;
    DeviceNode m_node;
    UMockdevIoctlBase* const m_handler;
    std::vector<gulong> m_listening; // what the handler calls
    unsigned m_clients = 0;          // that have it open
    std::optional<BusShare::Clock::time_point> m_goneSince;
};

// The sysfs attributes that name a camera.
std::string attributesOf(const Config& config);

} // namespace sim
