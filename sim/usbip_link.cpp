// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// See usbip_link.h. Nothing that the host claims makes this side keep more than a transfer of 16 MiB and some answers.
#include "usbip_link.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <initializer_list>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

#include "urb_status.h"

namespace sim
{

static constexpr size_t kUsbipHeaderBytes = 48;
static constexpr size_t kReadBytes = size_t{64} << 10;
static constexpr uint32_t kMostBytes = uint32_t{16} << 20; // of one transfer; usbfs allows no more either, by itself
static constexpr size_t kMostPending = 1024;
static constexpr size_t kMostUnsent = size_t{1} << 20; // then the host has to read before it is heard again

enum CommandCode : uint32_t { kSubmit = 1, kUnlink = 2, kSubmitAnswer = 3, kUnlinkAnswer = 4 };

static constexpr uint32_t kOut = 0, kIn = 1; // directions
static constexpr uint32_t kNotIsochronous = 0xFFFFFFFF;
static constexpr uint8_t kSetConfiguration = 9;

// Words are big-endian, but for the setup packet, which is as it stands on the bus.
struct UsbipLink::Command {
    uint32_t code, number, direction, endpoint;
    uint32_t bytes;    // of a submit
    uint32_t unlinked; // number of the submit that an unlink means
    uint32_t packets;
    Setup setup;

    explicit Command(std::span<const uint8_t> header)
    {
        const auto word = [&](size_t at) {
            return static_cast<uint32_t>(header[at] << 24 | header[at + 1] << 16 | header[at + 2] << 8 |
                                         header[at + 3]);
        };
        const auto half = [&](size_t at) { return static_cast<uint16_t>(header[at] | header[at + 1] << 8); };
        code = word(0);
        number = word(4);
        direction = word(12);
        endpoint = word(16);
        unlinked = word(20);
        bytes = word(24);
        packets = word(32);
        setup = {header[40], header[41], half(42), half(44), half(46)};
    }

    bool isSound() const
    {
        if (code == kUnlink)
            return true;
        const bool plain = packets == 0 || packets == kNotIsochronous; // the camera has no isochronous endpoint
        return code == kSubmit && direction <= kIn && bytes <= INT32_MAX && plain;
    }
};

static void append(std::vector<uint8_t>& bytes, std::initializer_list<uint32_t> words)
{
    const size_t start = bytes.size();
    for (const uint32_t word : words)
        for (const int shift : {24, 16, 8, 0})
            bytes.push_back(static_cast<uint8_t>(word >> shift & 0xFF));
    bytes.resize(start + kUsbipHeaderBytes);
}

UsbipLink::UsbipLink(Camera& camera, int socket) : m_camera(camera), m_socket(socket) {}

UsbipLink::~UsbipLink()
{
    close(m_socket);
}

bool UsbipLink::serve(TimeUs now)
{
    bool read = false; // once is enough: a host that never pauses must not keep the other cameras waiting
    do {
        moveBulkIn(now);
        send();
    } while (m_open && !congested() && (takeCommand(now) || (!std::exchange(read, true) && receive())));
    return m_open;
}

TimeUs UsbipLink::nextDue(TimeUs now) const
{
    const auto transfer = firstBulkIn();
    if (transfer == m_pending.end() || transfer->stuck || congested())
        return kNever;
    return m_camera.nextBulkIn(now);
}

short UsbipLink::events() const
{
    return static_cast<short>((congested() ? 0 : POLLIN) | (m_sent < m_answers.size() ? POLLOUT : 0));
}

bool UsbipLink::congested() const
{
    return m_answers.size() - m_sent > kMostUnsent;
}

// False when nothing has come.
bool UsbipLink::receive()
{
    std::array<uint8_t, kReadBytes> bytes;
    const ssize_t count = recv(m_socket, bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (count < 0 && (errno == EAGAIN || errno == EINTR))
        return false;
    m_open = count > 0;
    if (m_open)
        m_received.insert(m_received.end(), bytes.begin(), bytes.begin() + count);
    return m_open;
}

void UsbipLink::send()
{
    while (m_sent < m_answers.size()) {
        const ssize_t count =
            ::send(m_socket, m_answers.data() + m_sent, m_answers.size() - m_sent, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0) {
            m_open = m_open && (errno == EAGAIN || errno == EINTR);
            return;
        }
        m_sent += static_cast<size_t>(count);
    }
    m_answers.clear();
    m_sent = 0;
}

// False when no command has come in full.
bool UsbipLink::takeCommand(TimeUs now)
{
    const auto drop = [this](size_t bytes) {
        m_received.erase(m_received.begin(), m_received.begin() + static_cast<std::ptrdiff_t>(bytes));
    };
    const size_t skipped = std::min(m_toSkip, m_received.size());
    drop(skipped);
    m_toSkip -= skipped;
    if (m_received.size() < kUsbipHeaderBytes)
        return false;
    const Command command(m_received);
    m_open = command.isSound();
    if (!m_open)
        return false;
    size_t payload = command.code == kSubmit && command.direction == kOut ? command.bytes : 0;
    if (command.code == kSubmit && (command.bytes > kMostBytes || m_pending.size() >= kMostPending)) {
        answerSubmit(command.number, -ENOMEM, 0, {});
        m_toSkip = payload;
        payload = 0;
    } else if (m_received.size() < kUsbipHeaderBytes + payload) {
        return false;
    } else if (command.code == kSubmit) {
        submit(command, std::span(m_received).subspan(kUsbipHeaderBytes, payload), now);
    } else {
        unlink(command.number, command.unlinked);
    }
    drop(kUsbipHeaderBytes + payload);
    return true;
}

void UsbipLink::submit(const Command& command, std::span<uint8_t> payload, TimeUs now)
{
    const bool in = command.direction == kIn;
    if (command.endpoint == 0) {
        // A host does not tell when it resets the port, but it configures the device anew then.
        if (command.setup.requestType == 0 && command.setup.request == kSetConfiguration)
            m_camera.reset(now);
        std::vector<uint8_t> answer(in ? std::min<size_t>(command.bytes, command.setup.length) : 0);
        conclude(command, m_camera.control(command.setup, in ? answer : payload, now), answer);
    } else if (!in) {
        conclude(command, m_camera.bulkOut(static_cast<uint8_t>(command.endpoint), payload, now), {});
    } else if (command.endpoint == (kBulkIn & 0x0F)) {
        m_pending.push_back({.number = command.number, .bytes = command.bytes, .bulkIn = true});
    } else {
        answerSubmit(command.number, -EPIPE, 0, {});
    }
}

// A transfer that is never answered stays until the host gives it up; so does one that meets an unplugged camera.
void UsbipLink::conclude(const Command& command, const Outcome& outcome, std::span<const uint8_t> data)
{
    if (outcome.status == Status::timeout || outcome.status == Status::noDevice)
        m_pending.push_back({.number = command.number, .stuck = true});
    else
        answerSubmit(command.number, urbStatus(outcome.status), outcome.bytes,
                     data.first(std::min(outcome.bytes, data.size())));
}

void UsbipLink::moveBulkIn(TimeUs now)
{
    for (auto transfer = firstBulkIn(); transfer != m_pending.end(); transfer = firstBulkIn()) {
        if (transfer->stuck || congested())
            return;
        if (!m_moving) {
            m_camera.beginBulkIn(now);
            m_data.resize(transfer->bytes);
            m_moved = 0;
            m_moving = true;
        }
        if (m_camera.nextBulkIn(now) > now)
            return;
        const Outcome outcome = m_camera.bulkIn(kBulkIn, std::span(m_data).subspan(m_moved), now);
        m_moved += outcome.bytes;
        if (outcome.status == Status::noDevice || !outcome.complete)
            return;
        answerSubmit(transfer->number, urbStatus(outcome.status), m_moved, std::span(m_data).first(m_moved));
        m_pending.erase(transfer);
        m_moving = false;
    }
}

std::list<UsbipLink::Pending>::const_iterator UsbipLink::firstBulkIn() const
{
    return std::find_if(m_pending.begin(), m_pending.end(), [](const Pending& transfer) { return transfer.bulkIn; });
}

// What had arrived before belongs to the host, which gets it as the result of the transfer, as from a host controller.
void UsbipLink::unlink(uint32_t number, uint32_t unlinked)
{
    const auto transfer = std::find_if(m_pending.begin(), m_pending.end(),
                                       [&](const Pending& pending) { return pending.number == unlinked; });
    const bool moving = m_moving && transfer != m_pending.end() && transfer == firstBulkIn();
    const bool partial = moving && m_moved > 0;
    if (partial)
        answerSubmit(unlinked, -ECONNRESET, m_moved, std::span(m_data).first(m_moved));
    const int status = transfer == m_pending.end() || partial ? 0 : -ECONNRESET;
    append(m_answers, {kUnlinkAnswer, number, 0, 0, 0, static_cast<uint32_t>(status)});
    if (transfer != m_pending.end())
        m_pending.erase(transfer);
    m_moving = m_moving && !moving;
}

void UsbipLink::answerSubmit(uint32_t number, int status, size_t bytes, std::span<const uint8_t> data)
{
    append(m_answers,
           {kSubmitAnswer, number, 0, 0, 0, static_cast<uint32_t>(status), static_cast<uint32_t>(bytes), 0, 0, 0});
    m_answers.insert(m_answers.end(), data.begin(), data.end());
}

} // namespace sim
