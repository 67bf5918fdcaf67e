// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// There are two threads. umockdev's own answers the ioctls of clients. The bus's thread moves frames when they are due;
// it also plugs and unplugs, because umockdev's event sender allows only one thread to do that.
#include "bus.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <dlfcn.h>
#include <exception>
#include <list>
#include <malloc.h>
#include <memory>
#include <stdexcept>
#include <thread>

#include <umockdev.h>

#include "root_hub.h"
#include "umockdev_device.h"

namespace sim
{

namespace
{

using Clock = BusShare::Clock;

constexpr char kHubPath[] = "/devices/pci0000:00/0000:00:14.0/usb1";

constexpr auto kBetweenEventAndFailure = std::chrono::milliseconds(10); // or the other way round

constexpr unsigned kMostAddresses = 127; // of a USB bus
constexpr TimeUs kRetryUs = 1'000'000;   // for a camera that could not be plugged in

std::vector<uint8_t> joined(std::vector<uint8_t> first, const std::vector<uint8_t>& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

// How the preload library came into the process does not matter, nor whether a sanitizer stands before it.
bool isPreloaded()
{
    void* const preload = dlopen("libumockdev-preload.so.0", RTLD_LAZY | RTLD_NOLOAD);
    if (preload != nullptr)
        dlclose(preload);
    return preload != nullptr;
}

// The testbed's sockets may have names of 108 characters, so it stands in /tmp whatever TMPDIR says.
UMockdevTestbed* newTestbed()
{
    const char* set = getenv("TMPDIR");
    const std::string before = set != nullptr ? set : "";
    setenv("TMPDIR", "/tmp", 1);
    UMockdevTestbed* testbed = umockdev_testbed_new();
    if (set != nullptr)
        setenv("TMPDIR", before.c_str(), 1);
    else
        unsetenv("TMPDIR");
    return testbed;
}

struct Slot {
    std::unique_ptr<Camera> camera;
    std::string sysPath;
    UmockdevDevice* attached = nullptr; // null while unplugged
};

class MockBus final : public Bus
{
public:
    explicit MockBus(const BusOptions& options);
    ~MockBus() override;

    size_t add(Config config, unsigned port) override;
    void unplug(size_t index, TimeUs backAfter) override;
    void plug(size_t index) override;
    void withCamera(size_t index, const std::function<void(Camera&)>& look) override;
    UsbAddress address(size_t index) override;

private:
    void run();
    void onThread(const std::function<void()>& task);
    TimeUs serve(std::unique_lock<std::mutex>& lock);
    UmockdevDevice* attach(Camera* camera, const std::string& sysPath, const std::string& attributes,
                           const std::vector<uint8_t>& descriptors);
    void attachCamera(Slot& slot);
    void attachReturned(Slot& slot);
    void detach(Slot& slot, std::unique_lock<std::mutex>& lock);
    unsigned freeAddress();
    Clock::time_point retireUnused();

    UMockdevTestbed* m_testbed;
    const bool m_transfersFailFirst;

    const std::shared_ptr<BusShare> m_share; // its lock guards everything below
    std::deque<std::function<void()>> m_tasks;
    std::vector<Slot> m_slots;
    std::list<std::shared_ptr<UmockdevDevice>> m_devices; // also those that are gone, until no client has them open
    unsigned m_lastAddress = 0;
    bool m_stopping = false;
    std::thread m_thread;
};

MockBus::MockBus(const BusOptions& options)
    : m_transfersFailFirst(options.transfersFailFirst), m_share(std::make_shared<BusShare>(options))
{
    if (!isPreloaded())
        throw std::runtime_error("the virtual bus needs libumockdev-preload.so.0 in its process (LD_PRELOAD)");
    // Otherwise malloc maps and unmaps the buffer of each frame, at three times the cost of the frame itself.
    mallopt(M_TRIM_THRESHOLD, 256 << 20);
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    m_testbed = newTestbed();
    m_thread = std::thread([this] { run(); });
    onThread([this] {
        attach(nullptr, kHubPath, "A: product=Virtual root hub\\n\n",
               joined(hubDeviceDescriptor(), hubConfigDescriptor()));
    });
}

MockBus::~MockBus()
{
    {
        const std::lock_guard lock(m_share->mutex);
        m_stopping = true;
    }
    m_share->wake.notify_one();
    m_thread.join();
    for (const auto& device : m_devices)
        device->retire();
    {
        const std::lock_guard lock(m_share->mutex); // a call may be under way, and shall be the last to use the camera
        for (const auto& device : m_devices)
            device->port.fail();
    }
    g_object_unref(m_testbed);
}

// Forgets devices that nobody can reach any more. Returns when to look again.
Clock::time_point MockBus::retireUnused()
{
    auto next = Clock::time_point::max();
    for (auto device = m_devices.begin(); device != m_devices.end();) {
        const auto here = device++;
        const auto unused = (*here)->unusedFrom();
        if (!unused)
            continue;
        if (Clock::now() < *unused) {
            next = std::min(next, *unused);
            continue;
        }
        (*here)->retire();
        m_devices.erase(here);
    }
    return next;
}

// The next address in turn that no device has and no client holds open, so that a client that still holds the old
// device cannot reach a new one.
unsigned MockBus::freeAddress()
{
    for (unsigned tries = 0; tries < kMostAddresses; ++tries) {
        m_lastAddress = m_lastAddress % kMostAddresses + 1;
        if (std::none_of(m_devices.begin(), m_devices.end(),
                         [&](const auto& device) { return device->address() == m_lastAddress; }))
            return m_lastAddress;
    }
    throw std::runtime_error("virtual bus: all 127 addresses are taken or held open");
}

// Runs a task on the bus's thread, with the lock held, and waits for it and for what follows from it.
void MockBus::onThread(const std::function<void()>& task)
{
    bool done = false;
    std::exception_ptr error;
    std::condition_variable finished;
    std::unique_lock lock(m_share->mutex);
    m_tasks.push_back([&] {
        try {
            task();
        } catch (...) {
            error = std::current_exception();
        }
    });
    m_tasks.push_back([&] {
        done = true;
        finished.notify_one();
    });
    m_share->wake.notify_one();
    finished.wait(lock, [&] { return done; });
    if (error)
        std::rethrow_exception(error);
}

void MockBus::run()
{
    std::unique_lock lock(m_share->mutex);
    while (!m_stopping) {
        if (!m_tasks.empty()) {
            const auto task = std::move(m_tasks.front());
            m_tasks.pop_front();
            task();
        }
        const TimeUs next = serve(lock);
        const Clock::time_point unusedUntil = retireUnused();
        if (m_tasks.empty() && !m_stopping)
            m_share->wake.wait_until(lock, std::min(m_share->clock.when(next), unusedUntil));
    }
}

// Does what is due; returns when the next thing will be.
TimeUs MockBus::serve(std::unique_lock<std::mutex>& lock)
{
    TimeUs next = kNever;
    for (Slot& slot : m_slots) {
        Camera& camera = *slot.camera;
        if (slot.attached != nullptr && !camera.plugged())
            detach(slot, lock);
        if (!camera.plugged() && camera.returnsAt() <= m_share->clock.now())
            camera.plug(m_share->clock.now());
        if (slot.attached == nullptr && camera.plugged())
            attachReturned(slot);
        if (slot.attached == nullptr) {
            next = std::min(next, camera.returnsAt());
            continue;
        }
        slot.attached->port.moveBulkIn(m_share->clock.now());
        slot.attached->update();
        next = std::min(next, slot.attached->port.nextBulkIn(m_share->clock.now()));
    }
    return next;
}

UmockdevDevice* MockBus::attach(Camera* camera, const std::string& sysPath, const std::string& attributes,
                                const std::vector<uint8_t>& descriptors)
{
    const auto& device =
        m_devices.emplace_back(std::make_shared<UmockdevDevice>(m_testbed, m_share, camera, freeAddress(), sysPath));
    device->announce(attributes, descriptors);
    return device.get();
}

void MockBus::attachCamera(Slot& slot)
{
    const Camera& camera = *slot.camera;
    slot.attached = attach(slot.camera.get(), slot.sysPath, attributesOf(camera.config()),
                           joined(camera.deviceDescriptor(), camera.configDescriptor()));
}

// A camera that finds no place stays away for a while, and says why.
void MockBus::attachReturned(Slot& slot)
{
    try {
        attachCamera(slot);
    } catch (const std::exception& error) {
        fprintf(stderr, "%s\n", error.what());
        slot.camera->unplug(m_share->clock.now(), kRetryUs);
    }
}

// libusb learns of an unplug from the event alone, so its programs see no dead device when that comes first. A kernel
// lets the transfers fail first.
void MockBus::detach(Slot& slot, std::unique_lock<std::mutex>& lock)
{
    UmockdevDevice& device = *slot.attached;
    if (m_transfersFailFirst)
        device.failTransfers();
    else
        device.port.freeze();
    lock.unlock(); // clients go on being answered
    if (m_transfersFailFirst)
        std::this_thread::sleep_for(kBetweenEventAndFailure);
    device.announceUnplug();
    if (!m_transfersFailFirst)
        std::this_thread::sleep_for(kBetweenEventAndFailure);
    lock.lock();
    device.vanish();
    slot.attached = nullptr;
}

size_t MockBus::add(Config config, unsigned port)
{
    size_t index = 0;
    onThread([&] {
        index = m_slots.size();
        m_slots.push_back({std::make_unique<Camera>(std::move(config)),
                           std::string(kHubPath) + "/1-" + std::to_string(port != 0 ? port : index + 1)});
        attachCamera(m_slots.back());
    });
    return index;
}

void MockBus::unplug(size_t index, TimeUs backAfter)
{
    onThread([&] { m_slots.at(index).camera->unplug(m_share->clock.now(), backAfter); });
}

void MockBus::plug(size_t index)
{
    onThread([&] { m_slots.at(index).camera->plug(m_share->clock.now()); });
}

void MockBus::withCamera(size_t index, const std::function<void(Camera&)>& look)
{
    onThread([&] { look(*m_slots.at(index).camera); });
}

UsbAddress MockBus::address(size_t index)
{
    UsbAddress address;
    onThread([&] {
        if (const UmockdevDevice* attached = m_slots.at(index).attached)
            address = {1, attached->address()};
    });
    return address;
}

} // namespace

std::unique_ptr<Bus> makeMockBus(const BusOptions& options)
{
    return std::make_unique<MockBus>(options);
}

} // namespace sim
