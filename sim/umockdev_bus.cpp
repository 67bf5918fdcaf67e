// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// See umockdev_bus.h. Two threads: umockdev's own answers the clients' ioctls; the bus's thread moves frames when they
// are due and does everything that umockdev's event sender allows one thread only: plugging and unplugging.
#include "umockdev_bus.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <dlfcn.h>
#include <exception>
#include <list>
#include <malloc.h>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>

#include <umockdev.h>

#include "device_node.h"
#include "root_hub.h"
#include "usbfs.h"

namespace sim
{

namespace
{

using Clock = std::chrono::steady_clock;

constexpr char kHubPath[] = "/devices/pci0000:00/0000:00:14.0/usb1";

// libusb learns of an unplug from the event, not from the transfers that fail.
constexpr auto kEventToFailure = std::chrono::milliseconds(10);

constexpr unsigned kMostAddresses = 127; // of a USB bus
constexpr TimeUs kRetryUs = 1'000'000;   // for a camera that could not be plugged in

// An opener becomes known a moment after it has opened the node.
constexpr auto kBeforeRetiring = std::chrono::milliseconds(500);

std::string hex(const std::vector<uint8_t>& bytes)
{
    std::string text;
    for (const uint8_t byte : bytes) {
        text += "0123456789ABCDEF"[byte >> 4];
        text += "0123456789ABCDEF"[byte & 15];
    }
    return text;
}

std::string hex(uint16_t value)
{
    return hex({static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value & 0xFF)});
}

std::string threeDigits(unsigned number)
{
    const std::string text = std::to_string(number);
    return std::string(3 - std::min<size_t>(text.size(), 3), '0') + text;
}

std::string nodeOf(unsigned address)
{
    return "/dev/bus/usb/001/" + threeDigits(address);
}

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

// A device at one address. It outlives its unplugging: clients that still hold it open get their answers from here.
struct Attachment {
    Bus::State* bus;
    UsbPort port;
    unsigned address;
    std::string sysPath;
    DeviceNode node;
    UMockdevIoctlBase* handler;
    unsigned clients = 0; // that have it open
    std::optional<Clock::time_point> goneSince{};
};

struct Slot {
    std::unique_ptr<Camera> camera;
    std::string sysPath;
    Attachment* attached = nullptr; // null while unplugged
};

struct Bus::State {
    explicit State(const BusOptions& options);
    ~State();

    TimeUs now() const
    {
        const std::chrono::duration<double, std::micro> passed = Clock::now() - born;
        return static_cast<TimeUs>(passed.count() * options.timeScale);
    }

    // At most an hour from now: long enough to look again.
    Clock::time_point when(TimeUs time) const
    {
        const double wait = static_cast<double>(time - now()) / options.timeScale;
        return Clock::now() + std::chrono::microseconds(static_cast<int64_t>(std::clamp(wait, 0.0, 3.6e9)));
    }

    void run();
    void onThread(const std::function<void()>& task);
    TimeUs serve(std::unique_lock<std::mutex>& lock);
    Attachment* attach(Camera* camera, const std::string& sysPath, const std::string& attributes,
                       const std::vector<uint8_t>& descriptors);
    void attachCamera(Slot& slot);
    void attachReturned(Slot& slot);
    void detach(Slot& slot, std::unique_lock<std::mutex>& lock);
    unsigned freeAddress();
    void retire(const Attachment& attachment);
    Clock::time_point retireUnused();

    static void update(Attachment& a) { a.node.setReady(a.port.reapable()); }

    BusOptions options;
    Clock::time_point born = Clock::now();
    UMockdevTestbed* testbed;
    std::string root;

    std::mutex mutex; // guards everything below
    std::condition_variable wake;
    std::deque<std::function<void()>> tasks;
    std::vector<Slot> slots;
    std::list<std::unique_ptr<Attachment>> attachments; // also those that are gone, until their address is needed
    unsigned lastAddress = 0;
    bool stopping = false;
    std::thread thread;
};

static gboolean onIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer data)
{
    auto& attachment = *static_cast<Attachment*>(data);
    Bus::State& bus = *attachment.bus;
    {
        const std::lock_guard lock(bus.mutex);
        const TimeUs now = bus.now();
        answerIoctl(client, {attachment.port, attachment.address, bus.options.capabilities}, now);
        attachment.port.moveBulkIn(now);
        Bus::State::update(attachment);
    }
    bus.wake.notify_one();
    return TRUE;
}

// umockdev tells nobody that a client has closed the device, but its object of the client ends then.
static void onClientGone(gpointer data, GObject* client)
{
    auto& attachment = *static_cast<Attachment*>(data);
    {
        const std::lock_guard lock(attachment.bus->mutex);
        attachment.port.close(client);
        --attachment.clients;
        Bus::State::update(attachment);
    }
    attachment.bus->wake.notify_one();
}

static void onClient(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer data)
{
    auto* const attachment = static_cast<Attachment*>(data);
    {
        const std::lock_guard lock(attachment->bus->mutex);
        ++attachment->clients;
    }
    g_object_weak_ref(G_OBJECT(client), onClientGone, data);
}

Bus::State::State(const BusOptions& busOptions) : options(busOptions)
{
    if (!isPreloaded())
        throw std::runtime_error("the virtual bus needs libumockdev-preload.so.0 in its process (LD_PRELOAD)");
    // Else every frame's buffer is mapped and unmapped anew, at three times the cost of the frame.
    mallopt(M_TRIM_THRESHOLD, 256 << 20);
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    testbed = newTestbed();
    gchar* directory = umockdev_testbed_get_root_dir(testbed);
    root = directory;
    g_free(directory);
    thread = std::thread([this] { run(); });
    onThread([this] {
        attach(nullptr, kHubPath, "A: product=Virtual root hub\\n\n",
               joined(hubDeviceDescriptor(), hubConfigDescriptor()));
    });
}

Bus::State::~State()
{
    {
        const std::lock_guard lock(mutex);
        stopping = true;
    }
    wake.notify_one();
    thread.join();
    for (const auto& attachment : attachments)
        retire(*attachment);
    g_object_unref(testbed);
}

// Nobody is answered at this address any more.
void Bus::State::retire(const Attachment& attachment)
{
    umockdev_testbed_detach_ioctl(testbed, nodeOf(attachment.address).c_str(), nullptr);
    g_object_unref(attachment.handler);
}

// Forgets devices that are gone and that nobody has open any more. Returns when to look again.
Clock::time_point Bus::State::retireUnused()
{
    auto next = Clock::time_point::max();
    for (auto it = attachments.begin(); it != attachments.end();) {
        const Attachment& attachment = **it;
        const bool unused = attachment.goneSince && attachment.clients == 0;
        if (unused && Clock::now() >= *attachment.goneSince + kBeforeRetiring) {
            retire(attachment);
            it = attachments.erase(it);
            continue;
        }
        if (unused)
            next = std::min(next, *attachment.goneSince + kBeforeRetiring);
        ++it;
    }
    return next;
}

// The next address in turn that no device has and no client holds open: a late client of the device that was there
// shall not meet another.
unsigned Bus::State::freeAddress()
{
    for (unsigned tries = 0; tries < kMostAddresses; ++tries) {
        lastAddress = lastAddress % kMostAddresses + 1;
        if (std::none_of(attachments.begin(), attachments.end(),
                         [&](const auto& attachment) { return attachment->address == lastAddress; }))
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
    std::unique_lock lock(mutex);
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
    wake.notify_one();
    finished.wait(lock, [&] { return done; });
    if (error)
        std::rethrow_exception(error);
}

void Bus::State::run()
{
    std::unique_lock lock(mutex);
    while (!stopping) {
        if (!tasks.empty()) {
            const auto task = std::move(tasks.front());
            tasks.pop_front();
            task();
        }
        const TimeUs next = serve(lock);
        const Clock::time_point unusedUntil = retireUnused();
        if (tasks.empty() && !stopping)
            wake.wait_until(lock, std::min(when(next), unusedUntil));
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
        if (!camera.plugged() && camera.returnsAt() <= now())
            camera.plug(now());
        if (slot.attached == nullptr && camera.plugged())
            attachReturned(slot);
        if (slot.attached == nullptr) {
            next = std::min(next, camera.returnsAt());
            continue;
        }
        slot.attached->port.moveBulkIn(now());
        update(*slot.attached);
        next = std::min(next, slot.attached->port.nextBulkIn(now()));
    }
    return next;
}

Attachment* Bus::State::attach(Camera* camera, const std::string& sysPath, const std::string& attributes,
                               const std::vector<uint8_t>& descriptors)
{
    const unsigned address = freeAddress();
    const std::string node = nodeOf(address);
    attachments.push_back(std::unique_ptr<Attachment>(
        new Attachment{this, UsbPort(camera), address, sysPath, DeviceNode(root + node), umockdev_ioctl_base_new()}));
    Attachment* attachment = attachments.back().get();
    g_signal_connect(attachment->handler, "handle-ioctl", G_CALLBACK(onIoctl), attachment);
    g_signal_connect(attachment->handler, "client-connected", G_CALLBACK(onClient), attachment);

    const std::string number = std::to_string(address);
    const std::string description =
        "P: " + sysPath + "\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nE: DRIVER=usb\nE: DEVNAME=" + node +
        "\nE: MAJOR=189\nE: MINOR=" + std::to_string(address - 1) +
        "\nE: BUSNUM=001\nE: DEVNUM=" + threeDigits(address) + "\nA: busnum=1\\n\nA: devnum=" + number +
        "\\n\nA: speed=480\\n\nA: bConfigurationValue=1\\n\n" + attributes + "H: descriptors=" + hex(descriptors) +
        "\n";
    GError* error = nullptr;
    umockdev_testbed_attach_ioctl(testbed, node.c_str(), attachment->handler, &error);
    if (error == nullptr)
        umockdev_testbed_add_from_string(testbed, description.c_str(), &error);
    if (error != nullptr) {
        const std::string message = error->message;
        g_error_free(error);
        attachment->goneSince = Clock::now();
        throw std::runtime_error("virtual bus: " + message);
    }
    return attachment;
}

void Bus::State::attachCamera(Slot& slot)
{
    const Config& config = slot.camera->config();
    const std::string attributes =
        "A: idVendor=" + hex(config.vendorId) + "\\n\nA: idProduct=" + hex(config.productId) +
        "\\n\nA: manufacturer=" + config.manufacturer + "\\n\nA: product=" + config.product + "\\n\n";
    slot.attached = attach(slot.camera.get(), slot.sysPath, attributes,
                           joined(slot.camera->deviceDescriptor(), slot.camera->configDescriptor()));
}

// A camera that finds no place stays away for a while, and says why.
void Bus::State::attachReturned(Slot& slot)
{
    try {
        attachCamera(slot);
    } catch (const std::exception& error) {
        fprintf(stderr, "%s\n", error.what());
        slot.camera->unplug(now(), kRetryUs);
    }
}

// The order of a real unplug, as libusb notices it: event, failing transfers, no device.
void Bus::State::detach(Slot& slot, std::unique_lock<std::mutex>& lock)
{
    Attachment& attachment = *slot.attached;
    const std::string path = "/sys" + attachment.sysPath;
    attachment.port.freeze();
    lock.unlock(); // clients go on being answered
    umockdev_testbed_uevent(testbed, path.c_str(), "remove");
    std::this_thread::sleep_for(kEventToFailure);
    lock.lock();
    attachment.port.fail();
    update(attachment);
    umockdev_testbed_remove_device(testbed, path.c_str());
    attachment.node.unlink();
    attachment.goneSince = Clock::now();
    slot.attached = nullptr;
}

Bus::Bus(const BusOptions& options) : m_state(std::make_unique<State>(options)) {}

Bus::~Bus() = default;

const std::string& Bus::root() const
{
    return m_state->root;
}

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
    m_state->onThread([&] { m_state->slots.at(index).camera->unplug(m_state->now(), backAfter); });
}

void Bus::plug(size_t index)
{
    m_state->onThread([&] { m_state->slots.at(index).camera->plug(m_state->now()); });
}

void Bus::withCamera(size_t index, const std::function<void(Camera&)>& look)
{
    m_state->onThread([&] { look(*m_state->slots.at(index).camera); });
}

unsigned Bus::address(size_t index)
{
    unsigned address = 0;
    m_state->onThread([&] {
        const Attachment* attached = m_state->slots.at(index).attached;
        address = attached != nullptr ? attached->address : 0;
    });
    return address;
}

} // namespace sim
