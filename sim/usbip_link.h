// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// One camera on the USB/IP wire, as the device's side of a connection that has been imported: Linux's own vhci-hcd, or
// any other host, submits and unlinks transfers over a stream socket. The format is Documentation/usb/usbip_protocol of
// the Linux kernel.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <span>
#include <vector>

#include "camera.h"

namespace sim
{

class UsbipLink
{
public:
    UsbipLink(Camera& camera, int socket); // which it closes
    ~UsbipLink();
    UsbipLink(const UsbipLink&) = delete;
    UsbipLink& operator=(const UsbipLink&) = delete;

    // Takes what has come and answers what can be answered, without blocking. False when the connection is over: the
    // host has closed it, or has sent what is not USB/IP.
    bool serve(TimeUs now);

    // When to serve again though the socket is as it was.
    TimeUs nextDue(TimeUs now) const;

    int socket() const { return m_socket; }
    short events() const; // of poll(), that make serving worthwhile

private:
    struct Command;
    struct Pending {
        uint32_t number;
        uint32_t bytes = 0; // a bulk IN transfer asks for
        bool bulkIn = false;
        bool stuck = false; // nothing moves until the host unlinks it
    };

    bool receive();
    bool takeCommand(TimeUs now);
    void submit(const Command& command, std::span<uint8_t> payload, TimeUs now);
    void unlink(uint32_t number, uint32_t unlinked);
    void moveBulkIn(TimeUs now);
    void conclude(const Command& command, const Outcome& outcome, std::span<const uint8_t> data);
    void answerSubmit(uint32_t number, int status, size_t bytes, std::span<const uint8_t> data);
    void send();
    bool congested() const;
    std::list<Pending>::const_iterator firstBulkIn() const;

    Camera& m_camera;
    int m_socket;
    bool m_open = true;
    std::vector<uint8_t> m_received;
    size_t m_toSkip = 0; // bytes of a payload that nobody wants
    std::vector<uint8_t> m_answers;
    size_t m_sent = 0; // of the answers
    std::list<Pending> m_pending;

    bool m_moving = false; // the first pending bulk IN transfer has begun
    std::vector<uint8_t> m_data;
    size_t m_moved = 0;
};

} // namespace sim
