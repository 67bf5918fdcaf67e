// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// umockdev calls back on a thread of its own, so each callback takes the lock of the bus and wakes its thread.
#include "umockdev_device.h"

#include <algorithm>
#include <stdexcept>

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

UmockdevDevice::UmockdevDevice(UMockdevTestbed* testbed, BusShare& share, Camera* camera, unsigned address,
                               std::string sysPath)
    : port(camera), m_testbed(testbed), m_share(share), m_address(address), m_sysPath(std::move(sysPath)),
      m_node(rootOf(testbed) + nodeOf(address)), m_handler(umockdev_ioctl_base_new())
{
    g_signal_connect(m_handler, "handle-ioctl", G_CALLBACK(onIoctl), this);
    g_signal_connect(m_handler, "client-connected", G_CALLBACK(onClient), this);
}

void UmockdevDevice::retire()
{
    umockdev_testbed_detach_ioctl(m_testbed, nodeOf(m_address).c_str(), nullptr);
    g_object_unref(m_handler);
}

void UmockdevDevice::announce(const std::string& attributes, const std::vector<uint8_t>& descriptors)
{
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

gboolean UmockdevDevice::onIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self)
{
    auto& device = *static_cast<UmockdevDevice*>(self);
    BusShare& share = device.m_share;
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

void UmockdevDevice::onClient(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self)
{
    g_object_weak_ref(G_OBJECT(client), onClientGone, self);
    auto& device = *static_cast<UmockdevDevice*>(self);
    const std::lock_guard lock(device.m_share.mutex);
    ++device.m_clients;
}

// umockdev tells nobody that a client has closed the device, but its object of the client ends then.
void UmockdevDevice::onClientGone(gpointer self, GObject* client)
{
    auto& device = *static_cast<UmockdevDevice*>(self);
    BusShare& share = device.m_share;
    {
        const std::lock_guard lock(share.mutex);
        device.port.close(client);
        --device.m_clients;
        device.update();
    }
    share.wake.notify_one(); // the device may be gone: only the share is sure to be there
}

std::string attributesOf(const Config& config)
{
    return "A: idVendor=" + hexDigits(config.vendorId) + "\\n\nA: idProduct=" + hexDigits(config.productId) +
           "\\n\nA: manufacturer=" + config.manufacturer + "\\n\nA: product=" + config.product + "\\n\n";
}

} // namespace sim
