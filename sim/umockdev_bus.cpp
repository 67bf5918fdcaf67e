// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// There are two threads. umockdev's own answers the ioctls of clients. The bus's thread moves frames when they are due;
// it also plugs and unplugs, because umockdev's event sender allows only one thread to do that.
#include "umockdev_bus.h"

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

// libusb learns of an unplug from the event, not from the transfers that fail.
constexpr auto kEventToFailure = std::chrono::milliseconds(10);

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

} // namespace

struct Slot {
    std::unique_ptr<Camera> camera;
    std::string sysPath;
    UmockdevDevice* attached = nullptr; // null while unplugged
};

struct Bus::State {
    explicit State(const BusOptions& options);
    ~State();

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

    UMockdevTestbed* testbed;

    BusShare share; // its lock guards everything below
    std::deque<std::function<void()>> tasks;
    std::vector<Slot> slots;
    std::list<UmockdevDevice> devices; // also those that are gone, until no client has them open
    unsigned lastAddress = 0;
    bool stopping = false;
    std::thread thread;
};

Bus::State::State(const BusOptions& options)
{
    if (!isPreloaded())
        throw std::runtime_error("the virtual bus needs libumockdev-preload.so.0 in its process (LD_PRELOAD)");
    // Otherwise malloc maps and unmaps the buffer of each frame, at three times the cost of the frame itself.
    mallopt(M_TRIM_THRESHOLD, 256 << 20);
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    share.timeScale = options.timeScale;
    share.capabilities = options.capabilities;
    testbed = newTestbed();
    thread = std::thread([this] { run(); });
    onThread([this] {
        attach(nullptr, kHubPath, "A: product=Virtual root hub\\n\n",
               joined(hubDeviceDescriptor(), hubConfigDescriptor()));
    });
}

Bus::State::~State()
{
    {
        const std::lock_guard lock(share.mutex);
        stopping = true;
    }
    share.wake.notify_one();
    thread.join();
    for (UmockdevDevice& device : devices)
        device.retire();
    g_object_unref(testbed);
}

// Forgets devices that nobody can reach any more. Returns when to look again.
Clock::time_point Bus::State::retireUnused()
{
    auto next = Clock::time_point::max();
    for (auto device = devices.begin(); device != devices.end();) {
        const auto here = device++;
        const auto unused = here->unusedFrom();
        if (!unused)
            continue;
        if (Clock::now() < *unused) {
            next = std::min(next, *unused);
            continue;
        }
        here->retire();
        devices.erase(here);
    }
    return next;
}

// The next address in turn that no device has and no client holds open, so that a client that still holds the old
// device cannot reach a new one.
unsigned Bus::State::freeAddress()
{
    for (unsigned tries = 0; tries < kMostAddresses; ++tries) {
        lastAddress = lastAddress % kMostAddresses + 1;
        if (std::none_of(devices.begin(), devices.end(),
                         [&](const UmockdevDevice& device) { return device.address() == lastAddress; }))
            return lastAddress;
    }
    throw std::runtime_error("virtual bus: all 127 addresses are taken or held open");
}

// Runs a task on the bus's thread, with the lock held, and waits for it and for what follows from it.
void Bus::State::onThread(const std::function<void()>& task)
{
    bool done = false;
    std::exception_ptr error;
    std::condition_variable finished;
    std::unique_lock lock(share.mutex);
    tasks.push_back([&] {
        try {
            task();
        } catch (...) {
            error = std::current_exception();
        }
    });
    tasks.push_back([&] {
        done = true;
        finished.notify_one();
    });
    share.wake.notify_one();
    finished.wait(lock, [&] { return done; });
    if (error)
        std::rethrow_exception(error);
}

void Bus::State::run()
{
    std::unique_lock lock(share.mutex);
    while (!stopping) {
        if (!tasks.empty()) {
            const auto task = std::move(tasks.front());
            tasks.pop_front();
            task();
        }
        const TimeUs next = serve(lock);
        const Clock::time_point unusedUntil = retireUnused();
        if (tasks.empty() && !stopping)
            share.wake.wait_until(lock, std::min(share.when(next), unusedUntil));
    }
}

// Does what is due; returns when the next thing will be.
TimeUs Bus::State::serve(std::unique_lock<std::mutex>& lock)
{
    TimeUs next = kNever;
    for (Slot& slot : slots) {
        Camera& camera = *slot.camera;
        if (slot.attached != nullptr && !camera.plugged())
            detach(slot, lock);
        if (!camera.plugged() && camera.returnsAt() <= share.now())
            camera.plug(share.now());
        if (slot.attached == nullptr && camera.plugged())
            attachReturned(slot);
        if (slot.attached == nullptr) {
            next = std::min(next, camera.returnsAt());
            continue;
        }
        slot.attached->port.moveBulkIn(share.now());
        slot.attached->update();
        next = std::min(next, slot.attached->port.nextBulkIn(share.now()));
    }
    return next;
}

UmockdevDevice* Bus::State::attach(Camera* camera, const std::string& sysPath, const std::string& attributes,
                                   const std::vector<uint8_t>& descriptors)
{
    UmockdevDevice& device = devices.emplace_back(testbed, share, camera, freeAddress(), sysPath);
    device.announce(attributes, descriptors);
    return &device;
}

void Bus::State::attachCamera(Slot& slot)
{
    const Camera& camera = *slot.camera;
    slot.attached = attach(slot.camera.get(), slot.sysPath, attributesOf(camera.config()),
                           joined(camera.deviceDescriptor(), camera.configDescriptor()));
}

// A camera that finds no place stays away for a while, and says why.
void Bus::State::attachReturned(Slot& slot)
{
    try {
        attachCamera(slot);
    } catch (const std::exception& error) {
        fprintf(stderr, "%s\n", error.what());
        slot.camera->unplug(share.now(), kRetryUs);
    }
}

// The order of an unplug as libusb notices it: the event, failing transfers, no device.
void Bus::State::detach(Slot& slot, std::unique_lock<std::mutex>& lock)
{
    UmockdevDevice& device = *slot.attached;
    device.port.freeze();
    lock.unlock(); // clients go on being answered
    device.announceUnplug();
    std::this_thread::sleep_for(kEventToFailure);
    lock.lock();
    device.vanish();
    slot.attached = nullptr;
}

Bus::Bus(const BusOptions& options) : m_state(std::make_unique<State>(options)) {}

Bus::~Bus() = default;

size_t Bus::add(Config config, unsigned port)
{
    size_t index = 0;
    m_state->onThread([&] {
        index = m_state->slots.size();
        m_state->slots.push_back({std::make_unique<Camera>(std::move(config)),
                                  std::string(kHubPath) + "/1-" + std::to_string(port != 0 ? port : index + 1)});
        m_state->attachCamera(m_state->slots.back());
    });
    return index;
}

void Bus::unplug(size_t index, TimeUs backAfter)
{
    m_state->onThread([&] { m_state->slots.at(index).camera->unplug(m_state->share.now(), backAfter); });
}

void Bus::plug(size_t index)
{
    m_state->onThread([&] { m_state->slots.at(index).camera->plug(m_state->share.now()); });
}

void Bus::withCamera(size_t index, const std::function<void(Camera&)>& look)
{
    m_state->onThread([&] { look(*m_state->slots.at(index).camera); });
}

unsigned Bus::address(size_t index)
{
    unsigned address = 0;
    m_state->onThread([&] {
        const UmockdevDevice* attached = m_state->slots.at(index).attached;
        address = attached != nullptr ? attached->address() : 0;
    });
    return address;
}

} // namespace sim
