// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The bus is plain state of this file, because libusb's functions, which work on it, have no object to belong to.
#include "support/virtual_usb.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <sys/time.h>
#include <unistd.h>
#include <utility>

struct libusb_device {
    size_t port;
    uint8_t bus, address;
    sim::TimeUs since;
};

struct libusb_context {
    std::vector<std::shared_ptr<libusb_device>> atStart;
};

struct libusb_device_handle {
    libusb_device* device;
    bool open;
    libusb_context* context;
};

namespace
{

struct Port {
    std::unique_ptr<sim::Camera> camera;
    std::shared_ptr<libusb_device> device;
    uint8_t bus, address;
};

struct Failure {
    std::string call;
    int result;
    unsigned nth, times;
};

enum class Cut { none, lastByte, all };

struct Bus {
    std::unique_ptr<libusb_context> defaultContext;
    libusb_context* listedFrom = nullptr;
    std::vector<Port> ports;
    std::vector<std::shared_ptr<libusb_device>> everSeen; // the library may still ask one that is gone
    std::vector<std::unique_ptr<libusb_device_handle>> handles;
    std::map<libusb_device**, libusb_context*> lists; // the lists that are held, with the context that each came from
    std::vector<Failure> failures;
    std::vector<std::string> log;
    uint8_t nextAddress = 2;
    unsigned untilSpoil = 0; // 0: nothing will be spoiled
    VirtualUsb::Spoil spoil{};
    Cut cut = Cut::none; // of the transfer under way
};

Bus bus;
VirtualUsb& usb = VirtualUsb::get();

void note(const std::string& entry)
{
    bus.log.push_back(entry);
}

// Returns 0, or the result with which the call must end. `detail` is how `spoiled` names it, if not by its own name.
int failure(const std::string& call, const std::string& detail = "")
{
    using enum VirtualUsb::Spoil;
    bus.cut = Cut::none;
    if (bus.untilSpoil > 0 && --bus.untilSpoil == 0) {
        usb.spoiled = detail.empty() ? call : detail;
        if (bus.spoil < shortByOne)
            return static_cast<int>(bus.spoil);
        if (bus.spoil == shortByOne || bus.spoil == zeroBytes)
            bus.cut = bus.spoil == zeroBytes ? Cut::all : Cut::lastByte;
        else
            usb.unplug(0, bus.spoil == gone ? sim::kNever : 300'000);
    }
    for (Failure& f : bus.failures) {
        if (f.call != call || (f.nth > 1 && f.nth--))
            continue;
        if (f.times == 1)
            f.call = "done";
        f.times -= f.times > 1;
        return f.result;
    }
    return 0;
}

void attachReturned()
{
    for (size_t i = 0; i < bus.ports.size(); ++i)
        if (!bus.ports[i].camera->plugged() && usb.now >= bus.ports[i].camera->returnsAt())
            usb.replug(i);
}

std::vector<std::shared_ptr<libusb_device>> attached()
{
    std::vector<std::shared_ptr<libusb_device>> found;
    for (const Port& port : bus.ports)
        if (port.camera->plugged() && usb.now >= port.device->since + usb.listDelay)
            found.push_back(port.device);
    return found;
}

// The camera behind a device; null when it is gone or has come back as another device.
sim::Camera* cameraOf(const libusb_device* device)
{
    const Port& port = bus.ports[device->port];
    return port.device.get() == device && port.camera->plugged() ? port.camera.get() : nullptr;
}

// The camera behind a handle. Misuse is noted.
sim::Camera* cameraOf(const libusb_device_handle* handle, const char* call)
{
    if (handle == nullptr || !handle->open) {
        usb.violations.push_back(std::string(call) + " on a handle that is not open");
        return nullptr;
    }
    attachReturned();
    return cameraOf(handle->device);
}

// Calls that only succeed or fail.
int simpleCall(const libusb_device_handle* handle, const char* call, const std::string& argument = "")
{
    note(call + argument);
    const int result = failure(call);
    const bool there = cameraOf(handle, call) != nullptr;
    return result != 0 || there ? result : LIBUSB_ERROR_NO_DEVICE;
}

int resultOf(const sim::Outcome& outcome)
{
    using enum sim::Status;
    static const std::map<sim::Status, int> errors{
        {stall, LIBUSB_ERROR_PIPE}, {timeout, LIBUSB_ERROR_TIMEOUT}, {overflow, LIBUSB_ERROR_OVERFLOW},
        {ioError, LIBUSB_ERROR_IO}, {noMemory, LIBUSB_ERROR_NO_MEM}, {noDevice, LIBUSB_ERROR_NO_DEVICE},
    };
    return outcome.status == ok ? static_cast<int>(outcome.bytes) : errors.at(outcome.status);
}

// The number of bytes that `transfer` moves into or out of `data`. A cut transfer moves none, or all but the last.
template <typename Transfer> int cutShort(std::span<uint8_t> data, Transfer transfer)
{
    if (bus.cut == Cut::all)
        return 0;
    const uint8_t last = data.empty() ? 0 : data.back();
    const int moved = transfer();
    if (bus.cut == Cut::none || moved <= 0)
        return moved;
    if (static_cast<size_t>(moved) == data.size())
        data.back() = last;
    return moved - 1;
}

std::string describe(const sim::Setup& setup, int result, unsigned timeout)
{
    const bool usual = setup.index == 0 && timeout == 1000 && setup.requestType == (setup.request & 8 ? 0xC0 : 0x40);
    char text[80];
    int end = snprintf(text, sizeof text, "%02X %u", setup.request, setup.length);
    if (setup.value != 0)
        end += snprintf(text + end, sizeof text - end, " at %04X", setup.value);
    if (!usual && setup.request != 0xBA && setup.request != 0xBB)
        end += snprintf(text + end, sizeof text - end, " type %02X index %u timeout %u", setup.requestType, setup.index,
                        timeout);
    if (result < 0)
        snprintf(text + end, sizeof text - end, " %d", result);
    return text;
}

int bulkOut(sim::Camera& camera, uint8_t endpoint, std::span<const uint8_t> data, size_t& moved)
{
    const sim::Outcome outcome = camera.bulkOut(endpoint, data, usb.now);
    moved = outcome.bytes;
    return std::min(resultOf(outcome), 0);
}

int bulkIn(sim::Camera& camera, uint8_t endpoint, std::span<uint8_t> data, size_t& moved, unsigned timeout)
{
    if (usb.answerBulkIn)
        return usb.answerBulkIn(data, moved);
    const sim::TimeUs deadline = usb.now + timeout * sim::TimeUs{1000};
    camera.beginBulkIn(usb.now);
    for (;;) {
        const sim::Outcome outcome = camera.bulkIn(endpoint, data.subspan(moved), usb.now);
        moved += outcome.bytes;
        if (outcome.status != sim::Status::ok && outcome.status != sim::Status::timeout)
            return resultOf(outcome);
        if (outcome.complete)
            return 0;
        const sim::TimeUs next = outcome.status == sim::Status::timeout ? sim::kNever : camera.nextBulkIn(usb.now);
        if (next > deadline) {
            usb.now = deadline;
            return LIBUSB_ERROR_TIMEOUT;
        }
        usb.now = std::max(usb.now, next);
    }
}

// Whether a signal cuts this wait short.
bool isInterrupted()
{
    if (usb.interruptedWaits == 0)
        return false;
    --usb.interruptedWaits;
    errno = EINTR;
    return true;
}

} // namespace

VirtualUsb& VirtualUsb::get()
{
    static VirtualUsb only;
    return only;
}

void VirtualUsb::reset()
{
    *this = {};
    bus = {};
}

size_t VirtualUsb::plug(sim::Config config, uint8_t busNumber)
{
    bus.ports.push_back({std::make_unique<sim::Camera>(std::move(config)), nullptr, busNumber, 0});
    replug(bus.ports.size() - 1);
    return bus.ports.size() - 1;
}

void VirtualUsb::replug(size_t port)
{
    replug(port, bus.nextAddress++);
}

void VirtualUsb::replug(size_t port, uint8_t address)
{
    Port& p = bus.ports.at(port);
    p.address = address;
    p.device = std::make_shared<libusb_device>(libusb_device{port, p.bus, address, now});
    bus.everSeen.push_back(p.device);
    if (!p.camera->plugged())
        p.camera->plug(now);
}

void VirtualUsb::unplug(size_t port, sim::TimeUs backAfter)
{
    camera(port).unplug(now, backAfter);
}

sim::Camera& VirtualUsb::camera(size_t port)
{
    return *bus.ports.at(port).camera;
}

uint8_t VirtualUsb::address(size_t port) const
{
    return bus.ports.at(port).address;
}

void VirtualUsb::fail(const std::string& call, int result, unsigned nth, unsigned times)
{
    bus.failures.push_back({call, result, nth, times});
}

void VirtualUsb::spoil(unsigned nth, Spoil how)
{
    bus.untilSpoil = nth;
    bus.spoil = how;
    spoiled.clear();
}

void VirtualUsb::disarm()
{
    bus.untilSpoil = 0;
}

std::string VirtualUsb::conversation()
{
    std::string text;
    for (const std::string& entry : std::exchange(bus.log, {}))
        text += (text.empty() ? "" : ", ") + entry;
    return text;
}

bool VirtualUsb::isHalted(size_t port, uint8_t endpoint)
{
    uint8_t status[2] = {};
    camera(port).control({0x82, 0, 0, endpoint, 2}, status, now);
    return status[0] & 1;
}

int VirtualUsb::openHandles() const
{
    return static_cast<int>(
        std::count_if(bus.handles.begin(), bus.handles.end(), [](const auto& handle) { return handle->open; }));
}

extern "C" {

const char* VqdSystemRoot()
{
    return usb.systemRoot.c_str();
}

int LIBUSB_CALL libusb_init(libusb_context** context)
{
    if (const int result = failure("init"))
        return result;
    attachReturned();
    note(context == nullptr ? "init" : "init another");
    if (context != nullptr) {
        ++usb.furtherContexts;
        *context = new libusb_context{attached()};
    } else if (usb.contextUses++ == 0) {
        bus.defaultContext = std::make_unique<libusb_context>(libusb_context{attached()});
    }
    return 0;
}

void LIBUSB_CALL libusb_exit(libusb_context* context)
{
    note(context == nullptr ? "exit" : "exit another");
    if (context == nullptr && (usb.contextUses == 0 || --usb.contextUses > 0))
        return;
    const libusb_context* const ended = context == nullptr ? bus.defaultContext.get() : context;
    for (const auto& handle : bus.handles)
        if (handle->open && handle->context == ended)
            usb.violations.push_back("context ended with open handles");
    for (const auto& [list, from] : bus.lists)
        if (from == ended)
            usb.violations.push_back("context ended with a device list held");
    if (context == nullptr) {
        bus.defaultContext.reset();
        return;
    }
    delete context;
    --usb.furtherContexts;
}

ssize_t LIBUSB_CALL libusb_get_device_list(libusb_context* context, libusb_device*** list)
{
    if (context == nullptr)
        context = bus.defaultContext.get();
    if (context == nullptr) {
        usb.violations.push_back("device list without a context");
        return LIBUSB_ERROR_OTHER;
    }
    bus.listedFrom = context;
    attachReturned();
    note("list");
    if (const int result = failure("list"))
        return result;
    std::vector<libusb_device*> found;
    for (const auto& device : usb.frozenLists ? context->atStart : attached())
        found.push_back(device.get());
    *list = new libusb_device*[found.size() + 1]();
    std::copy(found.begin(), found.end(), *list);
    ++usb.listsHeld;
    bus.lists[*list] = context;
    return static_cast<ssize_t>(found.size());
}

void LIBUSB_CALL libusb_free_device_list(libusb_device** list, int unref)
{
    if (unref != 1)
        usb.violations.push_back("device list freed without its devices");
    bus.lists.erase(list);
    delete[] list;
    --usb.listsHeld;
}

libusb_device* LIBUSB_CALL libusb_get_device(libusb_device_handle* handle)
{
    return handle->device;
}

int LIBUSB_CALL libusb_get_device_descriptor(libusb_device* device, libusb_device_descriptor* descriptor)
{
    if (const int result = failure("descriptor"))
        return result;
    const std::vector<uint8_t> bytes = usb.camera(device->port).deviceDescriptor();
    static_assert(sizeof *descriptor == 18);
    memcpy(descriptor, bytes.data(), sizeof *descriptor);
    return 0;
}

int LIBUSB_CALL libusb_open(libusb_device* device, libusb_device_handle** handle)
{
    note("open " + std::to_string(device->address));
    if (const int result = failure("open"))
        return result;
    if (cameraOf(device) == nullptr)
        return LIBUSB_ERROR_NO_DEVICE;
    bus.handles.push_back(std::make_unique<libusb_device_handle>(libusb_device_handle{device, true, bus.listedFrom}));
    *handle = bus.handles.back().get();
    return 0;
}

void LIBUSB_CALL libusb_close(libusb_device_handle* handle)
{
    if (handle == nullptr || !handle->open) {
        usb.violations.push_back("close of a handle that is not open");
        return;
    }
    handle->open = false;
    ++usb.closes;
    note("close " + std::to_string(handle->device->address));
}

int LIBUSB_CALL libusb_reset_device(libusb_device_handle* handle)
{
    const int result = simpleCall(handle, "reset");
    if (result == 0)
        cameraOf(handle, "reset")->reset(usb.now);
    return result;
}

uint8_t LIBUSB_CALL libusb_get_bus_number(libusb_device* device)
{
    return usb.onePlace ? 1 : device->bus;
}

uint8_t LIBUSB_CALL libusb_get_device_address(libusb_device* device)
{
    return usb.onePlace ? 1 : device->address;
}

int LIBUSB_CALL libusb_get_string_descriptor_ascii(libusb_device_handle* handle, uint8_t index, unsigned char* data,
                                                   int length)
{
    if (const int result = failure("string"))
        return result;
    if (usb.answerString)
        return usb.answerString(index, data, length);
    if (index == 0)
        return LIBUSB_ERROR_INVALID_PARAM;
    std::array<uint8_t, 255> wide{};
    const int got = libusb_control_transfer(handle, 0x80, 6, static_cast<uint16_t>(0x0300 | index), 0x0409, wide.data(),
                                            wide.size(), 1000);
    int n = 0;
    for (int i = 2; i + 1 < std::min<int>(got, wide[0]) && n < length - 1; i += 2)
        data[n++] = wide[i];
    if (got >= 2)
        data[n] = 0;
    return got < 0 ? got : n;
}

int LIBUSB_CALL libusb_get_config_descriptor(libusb_device* device, uint8_t, libusb_config_descriptor** descriptor)
{
    note("config");
    if (const int result = failure("config"))
        return result;
    if (!usb.camera(device->port).plugged())
        return LIBUSB_ERROR_NO_DEVICE;
    *descriptor = new libusb_config_descriptor{};
    ++usb.configurationsHeld;
    return 0;
}

void LIBUSB_CALL libusb_free_config_descriptor(libusb_config_descriptor* descriptor)
{
    delete descriptor;
    --usb.configurationsHeld;
}

int LIBUSB_CALL libusb_kernel_driver_active(libusb_device_handle* handle, int interface)
{
    return simpleCall(handle, "driver", " " + std::to_string(interface));
}

int LIBUSB_CALL libusb_claim_interface(libusb_device_handle* handle, int interface)
{
    return simpleCall(handle, "claim", " " + std::to_string(interface));
}

int LIBUSB_CALL libusb_control_transfer(libusb_device_handle* handle, uint8_t type, uint8_t request, uint16_t value,
                                        uint16_t index, unsigned char* data, uint16_t length, unsigned timeout)
{
    const sim::Setup setup{type, request, value, index, length};
    char number[8];
    snprintf(number, sizeof number, "%02X", request);
    int result = failure("control", number);
    sim::Camera* camera = cameraOf(handle, "control transfer");
    if (result == 0 && usb.stockControlLimit && length > 4096)
        result = LIBUSB_ERROR_INVALID_PARAM;
    if (result == 0 && camera == nullptr)
        result = LIBUSB_ERROR_NO_DEVICE;
    if (result == 0)
        result = cutShort({data, length}, [&] { return resultOf(camera->control(setup, {data, length}, usb.now)); });
    if (result == LIBUSB_ERROR_TIMEOUT)
        usb.now += timeout * sim::TimeUs{1000};
    if ((type & 0x60) == 0x40)
        note(describe(setup, result, timeout));
    return result;
}

int LIBUSB_CALL libusb_bulk_transfer(libusb_device_handle* handle, unsigned char endpoint, unsigned char* data,
                                     int length, int* moved, unsigned timeout)
{
    const bool in = endpoint & 0x80;
    const std::span<uint8_t> buffer(data, static_cast<size_t>(length));
    std::string entry = (in ? "in " : "out ") + std::to_string(length);
    int result = failure("bulk", entry);
    sim::Camera* camera = cameraOf(handle, "bulk transfer");
    int bytes = 0;
    if (result == 0 && camera == nullptr)
        result = LIBUSB_ERROR_NO_DEVICE;
    if (result == 0)
        bytes = cutShort(buffer, [&] {
            size_t count = 0;
            result = in ? bulkIn(*camera, endpoint, buffer, count, timeout) : bulkOut(*camera, endpoint, buffer, count);
            return static_cast<int>(count);
        });
    if (result == LIBUSB_ERROR_TIMEOUT && !in)
        usb.now += timeout * sim::TimeUs{1000};
    if (result == LIBUSB_ERROR_PIPE && camera != nullptr) // whoever made it stall
        camera->control({0x02, 3, 0, endpoint, 0}, {}, usb.now);
    if (moved != nullptr)
        *moved = bytes;
    const bool usual = endpoint == (in ? 0x86 : 0x02) && timeout == (in && length > 2048 ? 3000 : 1000);
    entry += usual ? "" : " unusual";
    if (result < 0)
        entry += " " + std::to_string(result);
    note(entry);
    return result;
}

int usleep(useconds_t us)
{
    note("wait " + std::to_string(us));
    if (isInterrupted())
        return -1;
    usb.now += us;
    return 0;
}

unsigned sleep(unsigned seconds)
{
    note("sleep " + std::to_string(seconds));
    if (isInterrupted())
        return seconds - 1; // only whole seconds of what is left
    usb.now += seconds * sim::TimeUs{1'000'000};
    return 0;
}

int gettimeofday(timeval* time, void*) noexcept
{
    if (usb.logClock)
        note("clock");
    time->tv_sec = usb.now / 1'000'000;
    time->tv_usec = usb.now % 1'000'000;
    usb.now += usb.clockStep;
    return 0;
}

} // extern "C"
