// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// umockdev calls back on a thread of its own, so each callback takes the lock of the bus and wakes its thread.
#include "umockdev_device.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "usbfs.h"

namespace sim
{

// An opener becomes known a moment after it has opened the node.
static constexpr auto kBeforeRetiring = std::chrono::milliseconds(500);

static std::string hexDigits(uint16_t value)
{
    const uint8_t bytes[] = {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value & 0xFF)};
    return hexDigits(bytes);
}

static std::string threeDigits(unsigned number)
{
    const std::string text = std::to_string(number);
    return std::string(3 - std::min<size_t>(text.size(), 3), '0') + text;
}

static std::string nodeOf(unsigned address)
{
    return "/dev/bus/usb/001/" + threeDigits(address);
}

static std::string rootOf(UMockdevTestbed* testbed)
{
    gchar* directory = umockdev_testbed_get_root_dir(testbed);
    std::string root = directory;
    g_free(directory);
    return root;
}

// What umockdev is given for each of its calls.
using SharedDevice = std::shared_ptr<UmockdevDevice>;

static void forget(gpointer shared, GClosure*)
{
    delete static_cast<SharedDevice*>(shared);
}

UmockdevDevice::UmockdevDevice(UMockdevTestbed* testbed, std::shared_ptr<BusShare> share, Camera* camera,
                               unsigned address, std::string sysPath)
    : port(camera), m_testbed(testbed), m_share(std::move(share)), m_address(address), m_sysPath(std::move(sysPath)),
      m_node(rootOf(testbed) + nodeOf(address)), m_handler(umockdev_ioctl_base_new())
{
}

void UmockdevDevice::listen(const char* signal, GCallback answer)
{
    m_listening.push_back(g_signal_connect_data(m_handler, signal, answer, new SharedDevice(shared_from_this()), forget,
                                                static_cast<GConnectFlags>(0)));
}

void UmockdevDevice::retire()
{
    umockdev_testbed_detach_ioctl(m_testbed, nodeOf(m_address).c_str(), nullptr);
    for (const gulong call : std::exchange(m_listening, {}))
        g_signal_handler_disconnect(m_handler, call);
    g_object_unref(m_handler);
}

void UmockdevDevice::announce(const std::string& attributes, const std::vector<uint8_t>& descriptors)
{
    listen("handle-ioctl", G_CALLBACK(onIoctl));
    listen("client-connected", G_CALLBACK(onClient));
    const std::string node = nodeOf(m_address);
    const std::string description = "P: " + m_sysPath +
                                    "\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nE: DRIVER=usb\nE: DEVNAME=" + node +
                                    "\nE: MAJOR=189\nE: MINOR=" + std::to_string(m_address - 1) +
                                    "\nE: BUSNUM=001\nE: DEVNUM=" + threeDigits(m_address) +
                                    "\nA: busnum=1\\n\nA: devnum=" + std::to_string(m_address) +
                                    "\\n\nA: speed=480\\n\nA: bConfigurationValue=1\\n\n" + attributes +
                                    "H: descriptors=" + hexDigits(descriptors) + "\n";
    GError* error = nullptr;
    umockdev_testbed_attach_ioctl(m_testbed, node.c_str(), m_handler, &error);
    if (error == nullptr)
        umockdev_testbed_add_from_string(m_testbed, description.c_str(), &error);
    if (error != nullptr) {
        const std::string message = error->message;
        g_error_free(error);
        m_goneSince = BusShare::Clock::now();
        throw std::runtime_error("virtual bus: " + message);
    }
}

void UmockdevDevice::failTransfers()
{
    port.fail();
    update();
}

void UmockdevDevice::announceUnplug()
{
    umockdev_testbed_uevent(m_testbed, ("/sys" + m_sysPath).c_str(), "remove");
}

void UmockdevDevice::vanish()
{
    failTransfers();
    umockdev_testbed_remove_device(m_testbed, ("/sys" + m_sysPath).c_str());
    m_node.unlink();
    m_goneSince = BusShare::Clock::now();
}

std::optional<BusShare::Clock::time_point> UmockdevDevice::unusedFrom() const
{
    if (!m_goneSince || m_clients > 0)
        return std::nullopt;
    return *m_goneSince + kBeforeRetiring;
}

gboolean UmockdevDevice::onIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer shared)
{
    UmockdevDevice& device = **static_cast<SharedDevice*>(shared);
    BusShare& share = *device.m_share;
    {
        const std::lock_guard lock(share.mutex);
        const TimeUs now = share.clock.now();
        answerIoctl(client, {device.port, device.m_address, share.capabilities}, now);
        device.port.moveBulkIn(now);
        device.update();
    }
    share.wake.notify_one();
    return TRUE;
}

void UmockdevDevice::onClient(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer shared)
{
    const SharedDevice& device = *static_cast<SharedDevice*>(shared);
    g_object_weak_ref(G_OBJECT(client), onClientGone, new SharedDevice(device));
    const std::lock_guard lock(device->m_share->mutex);
    ++device->m_clients;
}

// umockdev tells nobody that a client has closed the device, but its object of the client ends then.
void UmockdevDevice::onClientGone(gpointer shared, GObject* client)
{
    const std::unique_ptr<SharedDevice> held(static_cast<SharedDevice*>(shared));
    UmockdevDevice& device = **held;
    {
        const std::lock_guard lock(device.m_share->mutex);
        device.port.close(client);
        --device.m_clients;
        device.update();
    }
    device.m_share->wake.notify_one();
}

std::string attributesOf(const Config& config)
{
    return "A: idVendor=" + hexDigits(config.vendorId) + "\\n\nA: idProduct=" + hexDigits(config.productId) +
           "\\n\nA: manufacturer=" + config.manufacturer + "\\n\nA: product=" + config.product + "\\n\n";
}

} // namespace sim
