// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The libusb functions, the clock and the sleeps of a test program, over virtual cameras and virtual time.
#include "support/virtual_usb.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/time.h>
#include <unistd.h>

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

VirtualUsb& VirtualUsb::get()
{
    static VirtualUsb usb;
    return usb;
}

void VirtualUsb::reset()
{
    *this = {};
}

size_t VirtualUsb::plug(sim::Config config, uint8_t bus)
{
    m_ports.push_back({std::make_unique<sim::Camera>(std::move(config)), nullptr, bus, 0});
    replug(m_ports.size() - 1);
    return m_ports.size() - 1;
}

void VirtualUsb::replug(size_t port)
{
    replug(port, m_nextAddress++);
}

void VirtualUsb::replug(size_t port, uint8_t address)
{
    Port& p = m_ports.at(port);
    p.address = address;
    p.device = std::make_shared<libusb_device>(libusb_device{port, p.bus, address, now});
    m_everSeen.push_back(p.device);
    if (!p.camera->plugged())
        p.camera->plug(now);
}

void VirtualUsb::unplug(size_t port, sim::TimeUs backAfter)
{
    camera(port).unplug(now, backAfter);
}

void VirtualUsb::attachReturned()
{
    for (size_t i = 0; i < m_ports.size(); ++i)
        if (!m_ports[i].camera->plugged() && now >= m_ports[i].camera->returnsAt())
            replug(i);
}

void VirtualUsb::fail(const std::string& call, int result, unsigned nth, unsigned times)
{
    m_failures.push_back({call, result, nth, times});
}

void VirtualUsb::spoil(unsigned nth, Spoil how)
{
    m_untilSpoil = nth;
    m_spoil = how;
    spoiled.clear();
}

int VirtualUsb::spoilNow(const std::string& call, const std::string& detail)
{
    spoiled = detail.empty() ? call : detail;
    switch (m_spoil) {
    case Spoil::stall:
        return LIBUSB_ERROR_PIPE;
    case Spoil::timeout:
        return LIBUSB_ERROR_TIMEOUT;
    case Spoil::noDevice:
        return LIBUSB_ERROR_NO_DEVICE;
    case Spoil::overflow:
        return LIBUSB_ERROR_OVERFLOW;
    case Spoil::noMemory:
        return LIBUSB_ERROR_NO_MEM;
    case Spoil::shortByOne:
    case Spoil::zeroBytes:
        m_cut = m_spoil == Spoil::zeroBytes ? Cut::all : Cut::lastByte;
        break;
    case Spoil::gone:
        unplug(0);
        break;
    case Spoil::goneForAWhile:
        unplug(0, 300'000);
        break;
    }
    return 0;
}

int VirtualUsb::failure(const std::string& call, const std::string& detail)
{
    m_cut = Cut::none;
    if (m_untilSpoil > 0 && --m_untilSpoil == 0)
        if (const int result = spoilNow(call, detail))
            return result;
    for (Failure& f : m_failures) {
        if (f.call != call || (f.nth > 1 && f.nth--))
            continue;
        if (f.times == 1)
            f.call = "done";
        f.times -= f.times > 1;
        return f.result;
    }
    return 0;
}

void VirtualUsb::note(const std::string& entry)
{
    m_log.push_back(entry);
}

std::string VirtualUsb::conversation()
{
    std::string text;
    for (const std::string& entry : m_log) {
        if (!text.empty())
            text += ", ";
        text += entry;
    }
    m_log.clear();
    return text;
}

int VirtualUsb::openHandles() const
{
    return static_cast<int>(
        std::count_if(m_handles.begin(), m_handles.end(), [](const auto& handle) { return handle->open; }));
}

// The camera behind a handle; null when it is gone or has come back as another device. Misuse is noted.
sim::Camera* VirtualUsb::cameraOf(libusb_device_handle* handle, const char* call)
{
    if (handle == nullptr || !handle->open) {
        violations.push_back(std::string(call) + " on a handle that is not open");
        return nullptr;
    }
    attachReturned();
    const Port& port = m_ports[handle->device->port];
    const bool there = port.device.get() == handle->device && port.camera->plugged();
    return there ? port.camera.get() : nullptr;
}

static int resultOf(const sim::Outcome& outcome)
{
    switch (outcome.status) {
    case sim::Status::ok:
        return static_cast<int>(outcome.bytes);
    case sim::Status::stall:
        return LIBUSB_ERROR_PIPE;
    case sim::Status::timeout:
        return LIBUSB_ERROR_TIMEOUT;
    case sim::Status::overflow:
        return LIBUSB_ERROR_OVERFLOW;
    case sim::Status::ioError:
        return LIBUSB_ERROR_IO;
    case sim::Status::noMemory:
        return LIBUSB_ERROR_NO_MEM;
    case sim::Status::noDevice:
        break;
    }
    return LIBUSB_ERROR_NO_DEVICE;
}

std::vector<std::shared_ptr<libusb_device>> VirtualUsb::attached() const
{
    std::vector<std::shared_ptr<libusb_device>> found;
    for (const Port& port : m_ports)
        if (port.camera->plugged() && now >= port.device->since + listDelay)
            found.push_back(port.device);
    return found;
}

int VirtualUsb::init(libusb_context** context)
{
    attachReturned();
    if (context != nullptr) {
        note("init another");
        ++furtherContexts;
        *context = new libusb_context{attached()};
        return 0;
    }
    note("init");
    if (contextUses++ == 0)
        m_default = std::make_unique<libusb_context>(libusb_context{attached()});
    return 0;
}

void VirtualUsb::exit(libusb_context* context)
{
    note(context == nullptr ? "exit" : "exit another");
    if (context == nullptr && (contextUses == 0 || --contextUses > 0))
        return;
    const libusb_context* const ended = context == nullptr ? m_default.get() : context;
    for (const auto& handle : m_handles)
        if (handle->open && handle->context == ended)
            violations.push_back("context ended with open handles");
    for (const auto& [list, from] : m_lists)
        if (from == ended)
            violations.push_back("context ended with a device list held");
    if (context == nullptr) {
        m_default.reset();
        return;
    }
    delete context;
    --furtherContexts;
}

// The functions below, as friends of the bus.
struct LibusbCalls {
    // Made before a transfer: takes its last byte back when the transfer is to be cut short.
    class CutShort
    {
    public:
        explicit CutShort(std::span<uint8_t> data) : m_data(data), m_last(data.empty() ? 0 : data.back()) {}
        int applied(int moved) const
        {
            if (VirtualUsb::get().m_cut != VirtualUsb::Cut::lastByte || moved <= 0)
                return moved;
            if (static_cast<size_t>(moved) == m_data.size())
                m_data.back() = m_last;
            return moved - 1;
        }

    private:
        std::span<uint8_t> m_data;
        uint8_t m_last;
    };

    static int init(libusb_context** context)
    {
        VirtualUsb& usb = VirtualUsb::get();
        if (const int result = usb.failure("init"))
            return result;
        return usb.init(context);
    }

    static void exit(libusb_context* context) { VirtualUsb::get().exit(context); }

    static ssize_t list(libusb_context* context, libusb_device*** list)
    {
        VirtualUsb& usb = VirtualUsb::get();
        if (context == nullptr)
            context = usb.m_default.get();
        if (context == nullptr) {
            usb.violations.push_back("device list without a context");
            return LIBUSB_ERROR_OTHER;
        }
        usb.m_listedFrom = context;
        usb.attachReturned();
        usb.note("list");
        if (const int result = usb.failure("list"))
            return result;
        std::vector<libusb_device*> found;
        for (const auto& device : usb.frozenLists ? context->atStart : usb.attached())
            found.push_back(device.get());
        *list = new libusb_device*[found.size() + 1]();
        std::copy(found.begin(), found.end(), *list);
        ++usb.listsHeld;
        usb.m_lists[*list] = context;
        return static_cast<ssize_t>(found.size());
    }

    static void freeList(libusb_device** list, int unref)
    {
        VirtualUsb& usb = VirtualUsb::get();
        if (unref != 1)
            usb.violations.push_back("device list freed without its devices");
        usb.m_lists.erase(list);
        delete[] list;
        --usb.listsHeld;
    }

    static int open(libusb_device* device, libusb_device_handle** handle)
    {
        VirtualUsb& usb = VirtualUsb::get();
        usb.note("open " + std::to_string(device->address));
        if (const int result = usb.failure("open"))
            return result;
        const VirtualUsb::Port& port = usb.m_ports[device->port];
        if (port.device.get() != device || !port.camera->plugged())
            return LIBUSB_ERROR_NO_DEVICE;
        usb.m_handles.push_back(
            std::make_unique<libusb_device_handle>(libusb_device_handle{device, true, usb.m_listedFrom}));
        *handle = usb.m_handles.back().get();
        return 0;
    }

    static void close(libusb_device_handle* handle)
    {
        VirtualUsb& usb = VirtualUsb::get();
        if (handle == nullptr || !handle->open) {
            usb.violations.push_back("close of a handle that is not open");
            return;
        }
        handle->open = false;
        ++usb.closes;
        usb.note("close " + std::to_string(handle->device->address));
    }

    // Calls that only succeed or fail: claim, driver, reset.
    static int simple(libusb_device_handle* handle, const char* call)
    {
        VirtualUsb& usb = VirtualUsb::get();
        usb.note(call);
        const int result = usb.failure(call);
        sim::Camera* camera = usb.cameraOf(handle, call);
        if (result != 0)
            return result;
        if (camera == nullptr)
            return LIBUSB_ERROR_NO_DEVICE;
        if (strcmp(call, "reset") == 0)
            camera->reset(usb.now);
        return 0;
    }

    static sim::Camera* at(libusb_device* device) { return VirtualUsb::get().m_ports[device->port].camera.get(); }

    static int control(libusb_device_handle* handle, const sim::Setup& setup, unsigned char* data, unsigned timeout)
    {
        VirtualUsb& usb = VirtualUsb::get();
        char request[8];
        snprintf(request, sizeof request, "%02X", setup.request);
        int result = usb.failure("control", request);
        sim::Camera* camera = usb.cameraOf(handle, "control transfer");
        if (result == 0 && usb.stockControlLimit && setup.length > 4096)
            result = LIBUSB_ERROR_INVALID_PARAM;
        if (result == 0 && camera == nullptr)
            result = LIBUSB_ERROR_NO_DEVICE;
        if (result == 0 && usb.m_cut != VirtualUsb::Cut::all) {
            const CutShort cut({data, setup.length});
            result = cut.applied(resultOf(camera->control(setup, {data, setup.length}, usb.now)));
        }
        if (result == LIBUSB_ERROR_TIMEOUT)
            usb.now += timeout * sim::TimeUs{1000};
        if ((setup.requestType & 0x60) == 0x40)
            usb.note(describe(setup, result, timeout));
        return result;
    }

    static std::string describe(const sim::Setup& setup, int result, unsigned timeout)
    {
        const bool usual =
            setup.index == 0 && timeout == 1000 && setup.requestType == (setup.request & 8 ? 0xC0 : 0x40);
        char text[80];
        int end = snprintf(text, sizeof text, "%02X %u", setup.request, setup.length);
        if (setup.value != 0)
            end += snprintf(text + end, sizeof text - end, " at %04X", setup.value);
        if (!usual && setup.request != 0xBA && setup.request != 0xBB)
            end += snprintf(text + end, sizeof text - end, " type %02X index %u timeout %u", setup.requestType,
                            setup.index, timeout);
        if (result < 0)
            snprintf(text + end, sizeof text - end, " %d", result);
        return text;
    }

    static int bulk(libusb_device_handle* handle, unsigned char endpoint, unsigned char* data, int length, int* moved,
                    unsigned timeout)
    {
        VirtualUsb& usb = VirtualUsb::get();
        const bool in = endpoint & 0x80;
        std::string entry(in ? "in " : "out ");
        entry += std::to_string(length);
        int result = usb.failure("bulk", entry);
        sim::Camera* camera = usb.cameraOf(handle, "bulk transfer");
        size_t bytes = 0;
        if (result == 0 && camera == nullptr)
            result = LIBUSB_ERROR_NO_DEVICE;
        const std::span<uint8_t> buffer(data, static_cast<size_t>(length));
        if (result == 0 && usb.m_cut != VirtualUsb::Cut::all) {
            const CutShort cut(buffer);
            result = in ? bulkIn(*camera, endpoint, buffer, bytes, timeout) : bulkOut(*camera, endpoint, buffer, bytes);
            bytes = static_cast<size_t>(cut.applied(static_cast<int>(bytes)));
        }
        if (result == LIBUSB_ERROR_TIMEOUT && !in)
            usb.now += timeout * sim::TimeUs{1000};
        if (moved != nullptr)
            *moved = static_cast<int>(bytes);
        const bool usual = endpoint == (in ? 0x86 : 0x02) && timeout == (in && length > 2048 ? 3000 : 1000);
        entry += usual ? "" : " unusual";
        if (result < 0)
            entry.append(" ").append(std::to_string(result));
        usb.note(entry);
        return result;
    }

    static int bulkOut(sim::Camera& camera, uint8_t endpoint, std::span<const uint8_t> data, size_t& moved)
    {
        const sim::Outcome outcome = camera.bulkOut(endpoint, data, VirtualUsb::get().now);
        moved = outcome.bytes;
        return std::min(resultOf(outcome), 0);
    }

    static int bulkIn(sim::Camera& camera, uint8_t endpoint, std::span<uint8_t> data, size_t& moved, unsigned timeout)
    {
        VirtualUsb& usb = VirtualUsb::get();
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

    static int string(libusb_device_handle* handle, uint8_t index, unsigned char* data, int length)
    {
        VirtualUsb& usb = VirtualUsb::get();
        if (const int result = usb.failure("string"))
            return result;
        if (usb.answerString)
            return usb.answerString(index, data, length);
        if (index == 0)
            return LIBUSB_ERROR_INVALID_PARAM;
        std::array<uint8_t, 255> wide{};
        const sim::Setup setup{0x80, 6, static_cast<uint16_t>(0x0300 | index), 0x0409, wide.size()};
        const int got = control(handle, setup, wide.data(), 1000);
        int n = 0;
        for (int i = 2; i + 1 < std::min<int>(got, wide[0]) && n < length - 1; i += 2)
            data[n++] = wide[i];
        if (got >= 2)
            data[n] = 0;
        return got < 0 ? got : n;
    }

    static int configuration(libusb_device* device, libusb_config_descriptor** descriptor)
    {
        VirtualUsb& usb = VirtualUsb::get();
        usb.note("config");
        if (const int result = usb.failure("config"))
            return result;
        if (!at(device)->plugged())
            return LIBUSB_ERROR_NO_DEVICE;
        *descriptor = new libusb_config_descriptor{};
        ++usb.configurationsHeld;
        return 0;
    }

    static int descriptor(libusb_device* device, libusb_device_descriptor* descriptor)
    {
        if (const int result = VirtualUsb::get().failure("descriptor"))
            return result;
        const std::vector<uint8_t> bytes = at(device)->deviceDescriptor();
        static_assert(sizeof *descriptor == 18);
        memcpy(descriptor, bytes.data(), sizeof *descriptor);
        return 0;
    }

    static void wait(const char* what, sim::TimeUs us, unsigned amount)
    {
        VirtualUsb::get().note(what + std::to_string(amount));
        VirtualUsb::get().now += us;
    }

    static sim::TimeUs clock()
    {
        VirtualUsb& usb = VirtualUsb::get();
        if (usb.logClock)
            usb.note("clock");
        usb.now += usb.clockStep;
        return usb.now - usb.clockStep;
    }
};

extern "C" {

const char* VqdSystemRoot()
{
    return VirtualUsb::get().systemRoot.c_str();
}
int LIBUSB_CALL libusb_init(libusb_context** context)
{
    return LibusbCalls::init(context);
}
void LIBUSB_CALL libusb_exit(libusb_context* context)
{
    LibusbCalls::exit(context);
}
ssize_t LIBUSB_CALL libusb_get_device_list(libusb_context* context, libusb_device*** list)
{
    return LibusbCalls::list(context, list);
}
void LIBUSB_CALL libusb_free_device_list(libusb_device** list, int unref)
{
    LibusbCalls::freeList(list, unref);
}
libusb_device* LIBUSB_CALL libusb_get_device(libusb_device_handle* handle)
{
    return handle->device;
}
int LIBUSB_CALL libusb_get_device_descriptor(libusb_device* device, libusb_device_descriptor* descriptor)
{
    return LibusbCalls::descriptor(device, descriptor);
}
int LIBUSB_CALL libusb_open(libusb_device* device, libusb_device_handle** handle)
{
    return LibusbCalls::open(device, handle);
}
void LIBUSB_CALL libusb_close(libusb_device_handle* handle)
{
    LibusbCalls::close(handle);
}
int LIBUSB_CALL libusb_reset_device(libusb_device_handle* handle)
{
    return LibusbCalls::simple(handle, "reset");
}
uint8_t LIBUSB_CALL libusb_get_bus_number(libusb_device* device)
{
    return VirtualUsb::get().showsOnePlace() ? 1 : device->bus;
}
uint8_t LIBUSB_CALL libusb_get_device_address(libusb_device* device)
{
    return VirtualUsb::get().showsOnePlace() ? 1 : device->address;
}
int LIBUSB_CALL libusb_get_string_descriptor_ascii(libusb_device_handle* handle, uint8_t index, unsigned char* data,
                                                   int length)
{
    return LibusbCalls::string(handle, index, data, length);
}
int LIBUSB_CALL libusb_get_config_descriptor(libusb_device* device, uint8_t, libusb_config_descriptor** descriptor)
{
    return LibusbCalls::configuration(device, descriptor);
}
void LIBUSB_CALL libusb_free_config_descriptor(libusb_config_descriptor* descriptor)
{
    delete descriptor;
    --VirtualUsb::get().configurationsHeld;
}
int LIBUSB_CALL libusb_kernel_driver_active(libusb_device_handle* handle, int)
{
    return LibusbCalls::simple(handle, "driver");
}
int LIBUSB_CALL libusb_claim_interface(libusb_device_handle* handle, int)
{
    return LibusbCalls::simple(handle, "claim");
}
int LIBUSB_CALL libusb_set_interface_alt_setting(libusb_device_handle* handle, int, int)
{
    return LibusbCalls::simple(handle, "alternate");
}
int LIBUSB_CALL libusb_get_max_iso_packet_size(libusb_device*, unsigned char)
{
    return 512;
}
int LIBUSB_CALL libusb_control_transfer(libusb_device_handle* handle, uint8_t type, uint8_t request, uint16_t value,
                                        uint16_t index, unsigned char* data, uint16_t length, unsigned timeout)
{
    return LibusbCalls::control(handle, {type, request, value, index, length}, data, timeout);
}
int LIBUSB_CALL libusb_bulk_transfer(libusb_device_handle* handle, unsigned char endpoint, unsigned char* data,
                                     int length, int* moved, unsigned timeout)
{
    return LibusbCalls::bulk(handle, endpoint, data, length, moved, timeout);
}

// Whether a signal cuts this wait short.
static bool isCut()
{
    unsigned& interrupted = VirtualUsb::get().interruptedWaits;
    errno = interrupted > 0 ? EINTR : errno;
    return interrupted > 0 && interrupted-- > 0;
}
int usleep(useconds_t us)
{
    const bool cut = isCut();
    LibusbCalls::wait("wait ", cut ? 0 : us, us);
    return cut ? -1 : 0;
}
unsigned sleep(unsigned seconds)
{
    const bool cut = isCut();
    LibusbCalls::wait("sleep ", cut ? 0 : seconds * sim::TimeUs{1'000'000}, seconds);
    return cut ? seconds - 1 : 0; // whole ones of those that are left
}
int gettimeofday(timeval* time, void*) noexcept
{
    const sim::TimeUs now = LibusbCalls::clock();
    time->tv_sec = now / 1'000'000;
    time->tv_usec = now % 1'000'000;
    return 0;
}

} // extern "C"
