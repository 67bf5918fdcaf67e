// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Cameras at the running kernel. Each is one end of a socket whose other end vhci-hcd has; closing it is an unplug. One
// thread answers the kernel and sees in sysfs when a camera has come or gone.
#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <deque>
#include <mutex>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include "bus.h"
#include "bus_clock.h"
#include "usbip_link.h"
#include "vhci_ports.h"

namespace sim
{

namespace
{

using Clock = BusClock::Clock;

constexpr auto kLookAgain = std::chrono::milliseconds(5); // at sysfs, while it is about to change
constexpr auto kPatience = std::chrono::seconds(30);      // for the kernel to find or to drop a camera
constexpr TimeUs kRetryUs = 1'000'000;                    // for a camera that could not be plugged in

enum class Presence { away, coming, here, leaving };

struct Slot {
    Slot(Config config, unsigned hubPort) : camera(std::move(config)), hubPort(hubPort) {}

    Camera camera;
    unsigned hubPort;
    Presence presence = Presence::away;
    std::unique_ptr<UsbipLink> link; // while coming or here
    VhciPort port;                   // while not away
    Clock::time_point since;         // of coming
    unsigned long drops = 0;         // how often it has left
};

class KernelBus final : public Bus
{
public:
    explicit KernelBus(const BusOptions& options);
    ~KernelBus() override;

    size_t add(Config config, unsigned port) override;
    void unplug(size_t index, TimeUs backAfter) override;
    void plug(size_t index) override;
    void withCamera(size_t index, const std::function<void(Camera&)>& look) override;
    UsbAddress address(size_t index) override;

private:
    void run();
    void step(Slot& slot);
    void attach(Slot& slot);
    void attachReturned(Slot& slot);
    void arrive(Slot& slot);
    void depart(Slot& slot);
    void sleepUntilDue(std::unique_lock<std::mutex>& lock);
    void wake() const { eventfd_write(m_wake, 1); }
    template <typename Condition> void await(std::unique_lock<std::mutex>& lock, const char* what, Condition condition);

    const VhciPorts m_ports;
    const BusClock m_clock;
    const int m_wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    std::mutex m_mutex; // guards everything below
    std::condition_variable m_changed;
    std::deque<Slot> m_slots; // which stay where they are
    bool m_stopping = false;
    std::thread m_thread;
};

KernelBus::KernelBus(const BusOptions& options) : m_clock(options.timeScale)
{
    m_thread = std::thread([this] { run(); });
}

KernelBus::~KernelBus()
{
    std::unique_lock lock(m_mutex);
    for (Slot& slot : m_slots) {
        slot.camera.unplug(m_clock.now());
        depart(slot);
    }
    wake();
    m_changed.wait_for(lock, kPatience, [&] {
        return std::ranges::all_of(m_slots, [](const Slot& slot) { return slot.presence == Presence::away; });
    });
    m_stopping = true;
    lock.unlock();
    wake();
    m_thread.join();
    close(m_wake);
}

void KernelBus::run()
{
    std::unique_lock lock(m_mutex);
    while (!m_stopping) {
        for (Slot& slot : m_slots)
            step(slot);
        m_changed.notify_all();
        sleepUntilDue(lock);
    }
}

void KernelBus::sleepUntilDue(std::unique_lock<std::mutex>& lock)
{
    std::vector<pollfd> files{{m_wake, POLLIN, 0}};
    auto due = Clock::time_point::max();
    for (const Slot& slot : m_slots) {
        if (slot.presence == Presence::coming || slot.presence == Presence::leaving)
            due = std::min(due, Clock::now() + kLookAgain);
        else if (slot.presence == Presence::away)
            due = std::min(due, m_clock.when(slot.camera.returnsAt()));
        if (slot.link == nullptr)
            continue;
        files.push_back({slot.link->socket(), slot.link->events(), 0});
        due = std::min(due, m_clock.when(slot.link->nextDue(m_clock.now())));
    }
    const auto wait = std::clamp<std::chrono::nanoseconds>(due - Clock::now(), std::chrono::nanoseconds(0), kPatience);
    const timespec limit{wait.count() / 1'000'000'000, wait.count() % 1'000'000'000};
    lock.unlock();
    ppoll(files.data(), files.size(), &limit, nullptr);
    eventfd_t woken = 0;
    eventfd_read(m_wake, &woken);
    lock.lock();
}

// Does what is due for one camera.
void KernelBus::step(Slot& slot)
{
    const TimeUs now = m_clock.now();
    if (slot.link != nullptr && !slot.link->serve(now) && slot.camera.plugged())
        slot.camera.unplug(now); // the kernel has let go of it
    if (!slot.camera.plugged())
        depart(slot);
    switch (slot.presence) {
    case Presence::coming:
        arrive(slot);
        break;
    case Presence::leaving:
        if (m_ports.dropped(slot.port)) {
            slot.presence = Presence::away;
            ++slot.drops;
        }
        break;
    case Presence::away:
        if (!slot.camera.plugged() && slot.camera.returnsAt() <= now)
            slot.camera.plug(now);
        if (slot.camera.plugged())
            attachReturned(slot);
        break;
    case Presence::here:
        break;
    }
}

void KernelBus::attach(Slot& slot)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        throw std::runtime_error(std::string("socketpair: ") + strerror(errno));
    slot.link = std::make_unique<UsbipLink>(slot.camera, ends[0]);
    try {
        slot.port = m_ports.attach(ends[1], slot.hubPort, slot.hubPort);
    } catch (...) {
        slot.link.reset();
        close(ends[1]);
        throw;
    }
    close(ends[1]); // the kernel has it
    slot.presence = Presence::coming;
    slot.since = Clock::now();
}

// A camera that finds no place stays away for a while, and says why.
void KernelBus::attachReturned(Slot& slot)
{
    try {
        attach(slot);
    } catch (const std::exception& error) {
        fprintf(stderr, "%s\n", error.what());
        slot.camera.unplug(m_clock.now(), kRetryUs);
    }
}

void KernelBus::arrive(Slot& slot)
{
    if (m_ports.address(slot.port))
        slot.presence = Presence::here;
    else if (Clock::now() - slot.since > kPatience)
        slot.camera.unplug(m_clock.now()); // the kernel does not want it
}

void KernelBus::depart(Slot& slot)
{
    if (slot.link == nullptr)
        return;
    slot.link.reset();
    slot.presence = Presence::leaving;
}

template <typename Condition>
void KernelBus::await(std::unique_lock<std::mutex>& lock, const char* what, Condition condition)
{
    wake();
    if (!m_changed.wait_for(lock, 2 * kPatience, condition))
        throw std::runtime_error(std::string("the kernel has not ") + what + " the camera");
}

size_t KernelBus::add(Config config, unsigned port)
{
    for (const Fault& fault : config.faults)
        if (fault.kind == Fault::Kind::noMemory)
            throw std::invalid_argument("\"out of memory\" is a fault of the host, which its kernel alone could make");
    std::unique_lock lock(m_mutex);
    const size_t index = m_slots.size();
    Slot& slot = m_slots.emplace_back(std::move(config), port != 0 ? port : static_cast<unsigned>(index + 1));
    try {
        attach(slot);
    } catch (...) {
        slot.camera.unplug(m_clock.now()); // for good
        throw;
    }
    await(lock, "found", [&] { return slot.presence == Presence::here || !slot.camera.plugged(); });
    if (slot.presence != Presence::here)
        throw std::runtime_error("the kernel has not accepted the camera; dmesg tells why");
    return index;
}

void KernelBus::unplug(size_t index, TimeUs backAfter)
{
    std::unique_lock lock(m_mutex);
    Slot& slot = m_slots.at(index);
    slot.camera.unplug(m_clock.now(), backAfter);
    depart(slot);
    const unsigned long drops = slot.drops;
    if (slot.presence == Presence::leaving)
        await(lock, "dropped", [&] { return slot.drops > drops; });
}

void KernelBus::plug(size_t index)
{
    std::unique_lock lock(m_mutex);
    Slot& slot = m_slots.at(index);
    if (!slot.camera.plugged())
        depart(slot);
    slot.camera.plug(m_clock.now());
    await(lock, "found", [&] { return slot.presence == Presence::here || !slot.camera.plugged(); });
}

void KernelBus::withCamera(size_t index, const std::function<void(Camera&)>& look)
{
    const std::lock_guard lock(m_mutex);
    look(m_slots.at(index).camera);
    wake();
}

UsbAddress KernelBus::address(size_t index)
{
    const std::lock_guard lock(m_mutex);
    const Slot& slot = m_slots.at(index);
    return slot.presence == Presence::here ? m_ports.address(slot.port).value_or(UsbAddress{}) : UsbAddress{};
}

} // namespace

std::unique_ptr<Bus> makeKernelBus(const BusOptions& options)
{
    return std::make_unique<KernelBus>(options);
}

} // namespace sim
