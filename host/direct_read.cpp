// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// One asynchronous control transfer by way of usbfs. Its synchronous form has a limit of one page; the asynchronous one
// has none that a table meets.
#include "host/direct_read.h"

#include <cerrno>
#include <chrono>
#include <cstring>

#include <fcntl.h>
#include <linux/usbdevice_fs.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "host/formatted.h"
#include "host/usb_devices.h"
#include "usb/vendor_channel.h"

namespace
{

constexpr size_t kSetupBytes = 8;

class OpenNode
{
public:
    explicit OpenNode(const std::string& path) : m_descriptor(open(path.c_str(), O_RDWR | O_CLOEXEC)) {}
    ~OpenNode() { close(m_descriptor); }
    OpenNode(const OpenNode&) = delete;
    OpenNode& operator=(const OpenNode&) = delete;

    operator int() const { return m_descriptor; }

private:
    const int m_descriptor;
};

Bytes setupOfRead(uint16_t region, uint16_t bytes)
{
    const auto low = [](uint16_t word) { return static_cast<uint8_t>(word & 0xFF); };
    const auto high = [](uint16_t word) { return static_cast<uint8_t>(word >> 8); };
    return {kVendorIn, kRequestReadTable, low(region), high(region), 0, 0, low(bytes), high(bytes)};
}

// Waits until the kernel gives the transfer back. False after the protocol's time-out; poll() may be interrupted, so
// the time is taken from a clock.
bool reapInTime(int node)
{
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::milliseconds(kRequestTimeoutMs);
    for (;;) {
        usbdevfs_urb* ended = nullptr;
        if (ioctl(node, USBDEVFS_REAPURBNDELAY, &ended) == 0)
            return true;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        if (errno != EAGAIN || left.count() <= 0)
            return false;
        pollfd ready{node, POLLOUT, 0};
        poll(&ready, 1, static_cast<int>(left.count()));
    }
}

} // namespace

Bytes readDirectly(const ListedCamera& camera, uint16_t region, uint16_t bytes)
{
    const std::string path = deviceNode(camera.place.bus, camera.place.address);
    const auto fail = [&](const std::string& why) {
        failOn(camera, formatted("%u bytes could not be read directly from %s: ", bytes, path.c_str()) + why);
    };
    const OpenNode node(path);
    if (node < 0)
        fail(strerror(errno));

    Bytes buffer = setupOfRead(region, bytes);
    buffer.resize(kSetupBytes + bytes);
    usbdevfs_urb transfer = usbdevfs_urb();
    transfer.type = USBDEVFS_URB_TYPE_CONTROL;
    transfer.buffer = buffer.data();
    transfer.buffer_length = static_cast<int>(buffer.size());
    if (ioctl(node, USBDEVFS_SUBMITURB, &transfer) != 0)
        fail(strerror(errno));
    if (!reapInTime(node)) {
        // The kernel writes to `buffer` until it has given the transfer back.
        usbdevfs_urb* ended = nullptr;
        ioctl(node, USBDEVFS_DISCARDURB, &transfer);
        while (ioctl(node, USBDEVFS_REAPURB, &ended) != 0 && errno == EINTR) {
        }
        fail("no answer within a second");
    }
    if (transfer.status != 0)
        fail(strerror(-transfer.status));
    if (transfer.actual_length != bytes)
        fail(formatted("%d bytes came", transfer.actual_length));
    buffer.erase(buffer.begin(), buffer.begin() + kSetupBytes);
    return buffer;
}
