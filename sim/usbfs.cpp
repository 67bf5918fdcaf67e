// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// See usbfs.h. Requests, errors and layouts are those of linux/usbdevice_fs.h.
#include "usbfs.h"

#include <linux/ioctl.h>
#include <linux/usbdevice_fs.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

namespace sim
{

namespace
{

using Data = std::unique_ptr<UMockdevIoctlData, decltype(&umockdev_ioctl_data_unref)>;

// Memory of the client behind a pointer at `offset` of `data`; null for a null pointer or nothing.
Data resolve(UMockdevIoctlData* data, size_t offset, size_t size)
{
    return {size == 0 ? nullptr : umockdev_ioctl_data_resolve(data, offset, size, nullptr), umockdev_ioctl_data_unref};
}

// The client's URB and its buffer, held until the client reaps them.
struct Origin {
    Data urb, buffer;
};

struct Answer {
    int result = 0; // of the ioctl when error is 0
    int error = 0;
};

Answer failed(int error)
{
    return {.error = error};
}

template <typename T> Data argument(UMockdevIoctlData* arg)
{
    return resolve(arg, 0, sizeof(T));
}

template <typename T> T& as(const Data& data)
{
    return *reinterpret_cast<T*>(data->data);
}

// Answers with the errno that `act` returns for the argument.
template <typename T, typename Act> Answer withArgument(UMockdevIoctlData* arg, Act act)
{
    const Data data = argument<T>(arg);
    return failed(data ? act(as<T>(data)) : EFAULT);
}

Answer submit(UMockdevIoctlClient* client, UsbPort& port, UMockdevIoctlData* arg, TimeUs now)
{
    Data data = argument<usbdevfs_urb>(arg);
    if (!data)
        return failed(EFAULT);
    const auto& request = as<usbdevfs_urb>(data);
    if (request.buffer_length < 0)
        return failed(EINVAL);
    Data buffer = resolve(data.get(), offsetof(usbdevfs_urb, buffer), static_cast<size_t>(request.buffer_length));
    Urb urb;
    urb.opener = client;
    urb.id = data->client_addr;
    urb.type = request.type;
    urb.endpoint = request.endpoint;
    urb.flags = request.flags;
    if (buffer)
        urb.buffer.assign(buffer->data, buffer->data + request.buffer_length);
    urb.origin = std::make_shared<Origin>(Origin{std::move(data), std::move(buffer)});
    return failed(port.submit(std::move(urb), now));
}

// The client's memory is written when the ioctl completes: the URB's result, the data that it received, its address.
Answer reap(UMockdevIoctlClient* client, UsbPort& port, UMockdevIoctlData* arg, std::shared_ptr<void>& keep)
{
    const auto urb = port.reap(client);
    if (!urb)
        return failed(port.present() != 0 ? port.present() : EAGAIN);
    const auto& origin = *static_cast<const Origin*>(urb->origin.get());
    auto& result = as<usbdevfs_urb>(origin.urb);
    result.status = urb->status;
    result.actual_length = static_cast<int>(urb->actual);
    if (origin.buffer && urb->toHost())
        std::copy_n(urb->buffer.begin(), std::min(urb->buffer.size(), urb->prefix() + urb->actual),
                    origin.buffer->data);
    const Data pointer = argument<void*>(arg);
    if (!pointer)
        return failed(EFAULT);
    umockdev_ioctl_data_set_ptr(pointer.get(), 0, origin.urb.get());
    keep = urb->origin;
    return {};
}

Answer driver(const UsbPort& port, UMockdevIoctlData* arg)
{
    const Data data = argument<usbdevfs_getdriver>(arg);
    if (!data)
        return failed(EFAULT);
    if (!port.claimed())
        return failed(ENODATA);
    strcpy(as<usbdevfs_getdriver>(data).driver, "usbfs");
    return {};
}

Answer capabilities(UMockdevIoctlData* arg, const UsbfsDevice& device)
{
    if (device.port.present() != 0)
        return failed(device.port.present());
    const Data data = argument<uint32_t>(arg);
    if (!data)
        return failed(EFAULT);
    as<uint32_t>(data) = device.capabilities;
    return {};
}

Answer connectInfo(UMockdevIoctlData* arg, unsigned address)
{
    const Data data = argument<usbdevfs_connectinfo>(arg);
    if (!data)
        return failed(EFAULT);
    as<usbdevfs_connectinfo>(data) = {.devnum = address, .slow = 0};
    return {};
}

// DISCARDURB names the URB by its address, which is not to be followed.
uint64_t addressIn(const UMockdevIoctlData* arg)
{
    uint64_t address = 0;
    memcpy(&address, arg->data, sizeof address);
    return address;
}

} // namespace

void answerIoctl(UMockdevIoctlClient* client, UsbfsDevice device, TimeUs now)
{
    constexpr int kHighSpeed = 3;
    UsbPort& port = device.port;
    UMockdevIoctlData* arg = umockdev_ioctl_client_get_arg(client);
    std::shared_ptr<void> keep;
    Answer answer = failed(ENOTTY);
    switch (umockdev_ioctl_client_get_request(client)) {
    case USBDEVFS_GET_CAPABILITIES:
        answer = capabilities(arg, device);
        break;
    case USBDEVFS_CLAIMINTERFACE:
        answer = withArgument<unsigned>(arg, [&](unsigned interface) { return port.claim(client, interface); });
        break;
    case USBDEVFS_DISCONNECT_CLAIM:
        answer = withArgument<usbdevfs_disconnect_claim>(arg, [&](const usbdevfs_disconnect_claim& wanted) {
            const int error = port.claim(client, wanted.interface);
            return error == ENOENT ? EINVAL : error; // no such interface
        });
        break;
    case USBDEVFS_RELEASEINTERFACE:
        answer = withArgument<unsigned>(arg, [&](unsigned interface) { return port.release(client, interface); });
        break;
    case USBDEVFS_GETDRIVER:
        answer = driver(port, arg);
        break;
    case USBDEVFS_IOCTL: // to detach or attach a kernel driver: there is none
        answer = failed(ENODATA);
        break;
    case USBDEVFS_RESET:
        answer = failed(port.reset(now));
        break;
    case USBDEVFS_SETCONFIGURATION:
        answer = withArgument<int>(arg, [&](int value) { return port.configure(value, now); });
        break;
    case USBDEVFS_CLEAR_HALT:
        answer = withArgument<unsigned>(arg, [&](unsigned endpoint) { return port.clearHalt(client, endpoint, now); });
        break;
    case USBDEVFS_SETINTERFACE:
        answer = withArgument<usbdevfs_setinterface>(arg, [&](const usbdevfs_setinterface& chosen) {
            return port.setInterface(client, chosen.interface, chosen.altsetting, now);
        });
        break;
    case USBDEVFS_CONNECTINFO:
        answer = connectInfo(arg, device.address);
        break;
    case USBDEVFS_GET_SPEED:
        answer = {.result = kHighSpeed};
        break;
    case USBDEVFS_SUBMITURB:
        answer = submit(client, port, arg, now);
        break;
    case USBDEVFS_REAPURB:
    case USBDEVFS_REAPURBNDELAY:
        answer = reap(client, port, arg, keep);
        break;
    case USBDEVFS_DISCARDURB:
        answer = failed(port.discard(client, addressIn(arg)));
        break;
    }
    umockdev_ioctl_client_complete(client, answer.error != 0 ? -1 : answer.result, answer.error);
}

} // namespace sim
