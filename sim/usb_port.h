// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// One plugged-in device as the kernel's usbfs shows it to its openers: the claim on the interface, and the transfers
// (URBs) that are queued, completed, cancelled and reaped. Knows nothing of the transport; the caller holds a lock and
// brings the time.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "camera.h"

namespace sim
{

using Opener = const void*; // whoever has the device node open; one per open()

struct Urb {
    Opener opener = nullptr;
    uint64_t id = 0; // the URB's address in the client
    uint8_t type = 0, endpoint = 0;
    uint32_t flags = 0;
    std::vector<uint8_t> buffer;  // control: 8 setup bytes, then the data; bulk: the data
    size_t actual = 0;            // bytes moved, without the setup bytes
    int status = 0;               // 0 or a negative errno, as usbfs reports it
    bool started = false;         // the camera knows of this transfer
    bool stuck = false;           // nothing moves until the host cancels it or the device is gone
    std::shared_ptr<void> origin; // what the transport needs to hand the result back

    size_t prefix() const; // where the data begins in the buffer
    bool toHost() const;
};

class UsbPort
{
public:
    explicit UsbPort(Camera* camera) : m_camera(camera) {} // no camera: the root hub

    // Results are 0 or an errno.
    int claim(Opener opener, unsigned interface);
    int release(Opener opener, unsigned interface);
    int configure(int value, TimeUs now); // refused while the interface is claimed
    int setInterface(Opener opener, unsigned interface, unsigned setting, TimeUs now);
    int clearHalt(Opener opener, unsigned endpoint, TimeUs now);
    int submit(Urb urb, TimeUs now);
    int discard(Opener opener, uint64_t id);
    int reset(TimeUs now);
    int present() const { return m_gone ? ENODEV : 0; }
    bool claimed() const { return m_owner != nullptr; }

    std::optional<Urb> reap(Opener opener);
    void close(Opener opener);

    // Moves what the camera has for the waiting bulk IN transfer; call again at nextBulkIn().
    void moveBulkIn(TimeUs now);
    TimeUs nextBulkIn(TimeUs now);

    // The two steps of an unplug: nothing moves any more; everything fails.
    void freeze() { m_frozen = true; }
    void fail();

    bool reapable() const; // some opener has a result to fetch
    Camera* camera() const { return m_camera; }

private:
    struct OpenerState {
        std::list<Urb> done;
        bool refusesContinuation = false; // after a failed bulk IN, until a transfer starts anew
    };

    int ask(const Setup& setup, TimeUs now);
    int submitControl(Urb&& urb, TimeUs now);
    int submitBulk(Urb&& urb, TimeUs now);
    void conclude(Urb&& urb, const Outcome& outcome);
    void finish(Urb&& urb, int status);
    void cutSeries(Opener opener);
    bool awaitsPieces() const;
    void overflow();
    std::list<Urb>::iterator firstBulkIn();

    Camera* m_camera;
    Opener m_owner = nullptr; // holds the claim on interface 0
    bool m_frozen = false, m_gone = false;
    std::list<Urb> m_pending;
    std::map<Opener, OpenerState> m_openers;
};

} // namespace sim
