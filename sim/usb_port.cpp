// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// See usb_port.h. Statuses, errnos and the rules of split transfers are usbfs's own.
#include "usb_port.h"

#include <linux/ioctl.h>
#include <linux/usbdevice_fs.h>

#include <algorithm>
#include <cerrno>
#include <span>

#include "root_hub.h"
#include "urb_status.h"

namespace sim
{

static constexpr size_t kSetupBytes = 8;
static constexpr uint8_t kClearFeature = 1, kSetConfiguration = 9, kSetInterface = 11;

static bool isControl(const Urb& urb)
{
    return urb.type == USBDEVFS_URB_TYPE_CONTROL;
}
static bool isBulkIn(const Urb& urb)
{
    return urb.type == USBDEVFS_URB_TYPE_BULK && urb.toHost();
}
static bool isBulkEndpoint(unsigned endpoint)
{
    return endpoint == kBulkOut || endpoint == kBulkIn;
}
static bool continues(const Urb& urb)
{
    return urb.flags & USBDEVFS_URB_BULK_CONTINUATION;
}

static Setup setupOf(const Urb& urb)
{
    const auto word = [&](size_t at) { return static_cast<uint16_t>(urb.buffer[at] | urb.buffer[at + 1] << 8); };
    return {urb.buffer[0], urb.buffer[1], word(2), word(4), word(6)};
}

size_t Urb::prefix() const
{
    return isControl(*this) ? kSetupBytes : 0;
}

bool Urb::toHost() const
{
    return (isControl(*this) ? buffer[0] : endpoint) & 0x80;
}

int UsbPort::claim(Opener opener, unsigned interface)
{
    if (m_gone)
        return ENODEV;
    if (interface != 0)
        return ENOENT;
    if (m_owner && m_owner != opener)
        return EBUSY;
    m_owner = opener;
    return 0;
}

int UsbPort::release(Opener opener, unsigned interface)
{
    if (m_gone)
        return ENODEV;
    if (interface != 0 || m_owner != opener)
        return EINVAL;
    m_owner = nullptr;
    return 0;
}

// -1 and 0 leave the device without a configuration.
int UsbPort::configure(int value, TimeUs now)
{
    if (m_gone)
        return ENODEV;
    if (m_owner)
        return EBUSY;
    if (value > 1)
        return EINVAL;
    return ask({0x00, kSetConfiguration, static_cast<uint16_t>(std::max(value, 0)), 0, 0}, now);
}

int UsbPort::setInterface(Opener opener, unsigned interface, unsigned setting, TimeUs now)
{
    if (const int error = claim(opener, interface))
        return error;
    if (setting != 0)
        return EINVAL;
    return ask({0x01, kSetInterface, 0, 0, 0}, now);
}

int UsbPort::clearHalt(Opener opener, unsigned endpoint, TimeUs now)
{
    if (!m_gone && (!m_camera || !isBulkEndpoint(endpoint)))
        return ENOENT;
    if (const int error = claim(opener, 0))
        return error;
    return ask({0x02, kClearFeature, 0, static_cast<uint16_t>(endpoint), 0}, now);
}

// What the kernel asks the device itself, for an ioctl.
int UsbPort::ask(const Setup& setup, TimeUs now)
{
    Outcome outcome{.status = Status::noDevice};
    if (!m_frozen)
        outcome = m_camera ? m_camera->control(setup, {}, now) : hubControl(setup, {});
    if (outcome.status == Status::timeout)
        return ETIMEDOUT;
    return outcome.status == Status::noDevice ? ENODEV : -urbStatus(outcome.status);
}

int UsbPort::submit(Urb urb, TimeUs now)
{
    if (m_gone)
        return ENODEV;
    if (isControl(urb))
        return submitControl(std::move(urb), now);
    return urb.type == USBDEVFS_URB_TYPE_BULK ? submitBulk(std::move(urb), now) : EINVAL;
}

int UsbPort::submitControl(Urb&& urb, TimeUs now)
{
    if (urb.buffer.size() < kSetupBytes || urb.buffer.size() < kSetupBytes + setupOf(urb).length)
        return EINVAL;
    Outcome outcome{.status = Status::noDevice};
    const Setup setup = setupOf(urb);
    const auto data = std::span(urb.buffer).subspan(kSetupBytes, setup.length);
    if (!m_frozen)
        outcome = m_camera ? m_camera->control(setup, data, now) : hubControl(setup, data);
    if (outcome.status == Status::noMemory)
        return ENOMEM;
    conclude(std::move(urb), outcome);
    return 0;
}

int UsbPort::submitBulk(Urb&& urb, TimeUs now)
{
    if (!m_camera || !isBulkEndpoint(urb.endpoint))
        return ENOENT;
    if (const int error = claim(urb.opener, 0)) // a transfer without a claim takes the interface, as in the kernel
        return error;
    if (!isBulkIn(urb)) {
        Outcome outcome{.status = Status::noDevice};
        if (!m_frozen)
            outcome = m_camera->bulkOut(urb.endpoint, urb.buffer, now);
        if (outcome.status == Status::noMemory)
            return ENOMEM;
        conclude(std::move(urb), outcome);
        return 0;
    }
    bool& refuses = m_openers[urb.opener].refusesContinuation;
    refuses = refuses && continues(urb);
    if (refuses)
        return EREMOTEIO;
    if (!m_frozen && !continues(urb) && firstBulkIn() == m_pending.end()) {
        m_camera->beginBulkIn(now);
        urb.started = true;
        if (m_camera->refusedByHost()) // a submission fails, and libusb tells why only then
            return ENOMEM;
    }
    m_pending.push_back(std::move(urb));
    return 0;
}

void UsbPort::moveBulkIn(TimeUs now)
{
    for (auto urb = firstBulkIn(); urb != m_pending.end() && !m_frozen; urb = firstBulkIn()) {
        if (!urb->started && !continues(*urb))
            m_camera->beginBulkIn(now); // a transfer that is split into URBs begins once
        urb->started = true;
        if (nextBulkIn(now) > now)
            return;
        const auto room = std::span(urb->buffer).subspan(urb->actual);
        const Outcome outcome = m_camera->bulkIn(urb->endpoint, room, now);
        if (outcome.status == Status::ok && !outcome.complete) {
            urb->actual += outcome.bytes;
            return;
        }
        if (outcome.status == Status::overflow) {
            overflow();
            continue;
        }
        Urb ended = std::move(*urb);
        m_pending.erase(urb);
        conclude(std::move(ended), outcome);
    }
}

// The camera sends more than was asked for: the pieces of the transfer fill, the last one overflows. libusb relies on
// it.
void UsbPort::overflow()
{
    for (bool last = false; !last;) {
        const auto urb = firstBulkIn();
        Urb ended = std::move(*urb);
        m_pending.erase(urb);
        last = !(ended.flags & USBDEVFS_URB_SHORT_NOT_OK);
        if (!last)
            ended.actual = ended.buffer.size();
        finish(std::move(ended), last ? -EOVERFLOW : 0);
    }
}

// libusb sends a long transfer in pieces and marks all but the last. On a real bus it has sent them all before the
// first one ends; here the first must wait, or an error would meet half a transfer, which libusb takes for a success.
bool UsbPort::awaitsPieces() const
{
    const auto last = std::find_if(m_pending.rbegin(), m_pending.rend(), isBulkIn);
    return last != m_pending.rend() && (last->flags & USBDEVFS_URB_SHORT_NOT_OK);
}

TimeUs UsbPort::nextBulkIn(TimeUs now)
{
    const auto urb = firstBulkIn();
    if (m_frozen || urb == m_pending.end() || urb->stuck || awaitsPieces())
        return kNever;
    return m_camera->nextBulkIn(now);
}

// A transfer that timed out stays pending until the host cancels it; one that met an unplugged camera, until
// fail().
void UsbPort::conclude(Urb&& urb, const Outcome& outcome)
{
    urb.actual += outcome.bytes;
    if (outcome.status != Status::timeout && outcome.status != Status::noDevice)
        return finish(std::move(urb), urbStatus(outcome.status));
    urb.stuck = true;
    m_pending.push_front(std::move(urb)); // what is queued behind it waits
}

void UsbPort::finish(Urb&& urb, int status)
{
    const bool tooShort = isBulkIn(urb) && urb.actual < urb.buffer.size() && (urb.flags & USBDEVFS_URB_SHORT_NOT_OK);
    urb.status = status == 0 && tooShort ? -EREMOTEIO : status;
    const bool cut = isBulkIn(urb) && urb.status != 0 && urb.status != -ENOENT && urb.status != -ECONNRESET;
    const Opener opener = urb.opener;
    m_openers[opener].done.push_back(std::move(urb));
    if (cut)
        cutSeries(opener);
}

// A long transfer travels as several URBs; when one fails, the rest of the series must not eat the data that
// follows.
void UsbPort::cutSeries(Opener opener)
{
    m_openers[opener].refusesContinuation = true;
    for (auto urb = m_pending.begin(); urb != m_pending.end();) {
        const auto here = urb++;
        if (here->opener != opener || !isBulkIn(*here))
            continue;
        if (!continues(*here))
            return;
        Urb cut = std::move(*here);
        m_pending.erase(here);
        finish(std::move(cut), -ECONNRESET);
    }
}

std::list<Urb>::iterator UsbPort::firstBulkIn()
{
    return std::find_if(m_pending.begin(), m_pending.end(), isBulkIn);
}

int UsbPort::discard(Opener opener, uint64_t id)
{
    const auto urb = std::find_if(m_pending.begin(), m_pending.end(),
                                  [&](const Urb& u) { return u.opener == opener && u.id == id; });
    if (m_gone || urb == m_pending.end())
        return m_gone ? ENODEV : EINVAL;
    Urb cancelled = std::move(*urb);
    m_pending.erase(urb);
    finish(std::move(cancelled), -ENOENT);
    return 0;
}

int UsbPort::reset(TimeUs now)
{
    if (m_gone)
        return ENODEV;
    while (!m_pending.empty()) {
        Urb flushed = std::move(m_pending.front());
        m_pending.pop_front();
        finish(std::move(flushed), -EPROTO);
    }
    if (m_camera && !m_frozen)
        m_camera->reset(now);
    return 0;
}

std::optional<Urb> UsbPort::reap(Opener opener)
{
    auto& done = m_openers[opener].done;
    if (done.empty())
        return std::nullopt;
    std::optional<Urb> first = std::move(done.front());
    done.pop_front();
    return first;
}

void UsbPort::close(Opener opener)
{
    m_pending.remove_if([&](const Urb& urb) { return urb.opener == opener; });
    m_openers.erase(opener);
    if (m_owner == opener)
        m_owner = nullptr;
}

void UsbPort::fail()
{
    m_gone = true;
    m_owner = nullptr;
    while (!m_pending.empty()) {
        Urb lost = std::move(m_pending.front());
        m_pending.pop_front();
        finish(std::move(lost), -ESHUTDOWN);
    }
}

bool UsbPort::reapable() const
{
    return std::any_of(m_openers.begin(), m_openers.end(),
                       [](const auto& opener) { return !opener.second.done.empty(); });
}

} // namespace sim
