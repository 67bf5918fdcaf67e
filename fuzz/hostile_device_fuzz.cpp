// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Devices that lie, in any order of calls: any ids and strings, calls that fail, cameras that come and go.
#include "fresh_library.h"
#include "input.h"

namespace
{

const char* const kModels[] = {"VQD-RS110", "VQD-WN120", "VQD-HT110", "VQD-HT120"};

sim::Config device(Input& input)
{
    sim::Config config;
    const uint8_t kind = input.take();
    if (kind & 1)
        config.vendorId = input.take<uint16_t>();
    if (kind & 2)
        config.productId = input.take<uint16_t>();
    config.product = kind & 4 ? input.text() : input.of(kModels);
    if (kind & 8)
        config.manufacturer = input.text();
    config.framesPerSecond = 0;
    return config;
}

// Neither the length nor a terminator can be relied on, but libusb stays inside the buffer.
void lieAboutStrings(Input& input, VirtualUsb& usb)
{
    const std::string text = input.text();
    const int result = input.take<int16_t>();
    usb.answerString = [=](int, unsigned char* data, int length) {
        std::copy_n(text.begin(), std::min(static_cast<size_t>(length), text.size()), data);
        return result;
    };
}

void failCalls(Input& input, VirtualUsb& usb)
{
    static constexpr const char* kCalls[] = {"init",  "list",   "open",    "descriptor", "config", "claim",
                                             "reset", "string", "control", "bulk",       "driver"};
    for (int lines = input.below(8); lines > 0; --lines) {
        const char* call = input.of(kCalls);
        const int result = -1 - input.below(12);
        const unsigned nth = 1 + input.take(), times = input.take();
        usb.fail(call, result, nth, times);
    }
}

void list(VirtualUsb& usb, size_t devices)
{
    std::vector<DevInfo> entries(std::min<size_t>(devices, VQD_MAX_DEVICES));
    std::vector<DevInfo> none(1); // what a null pointer must not stand for
    int count = 77;
    const int result = vqdGetDeviceList(entries.empty() ? none.data() : entries.data(), &count);
    requireOneOf(result, {1, -2}, "vqdGetDeviceList");
    require(result == 1 ? count >= 1 && count <= static_cast<int>(entries.size()) : count == 77 || count == -1,
            "the count is that of the entries");
    for (int i = 0; result == 1 && i < count; ++i) {
        const DevInfo& entry = entries.at(static_cast<size_t>(i));
        require(entry.nIndex == i, "an entry has its number");
        require(strnlen(entry.szVendorName, 256) <= 63 && strnlen(entry.szDeviceName, 256) <= 63, "names end");
        require(strlen(entry.szSerialNumber) == 14, "a serial has 14 digits");
        require(entry.nModelFlag <= 1, "the model flag is one");
    }
    require(usb.openHandles() <= VQD_MAX_DEVICES, "a slot holds one handle");
}

const struct {
    const char* name;
    int (*call)(int n);
    std::vector<int> allowed;
} kSteps[] = {
    {"vqdDeviceOpen", vqdDeviceOpen, {1, 0}},
    {"vqdDeviceClose", vqdDeviceClose, {1, -2}},
    {"vqdDeviceReOpen", vqdDeviceReOpen, {1, 0, -2, -3}},
    {"vqdGrabStart", vqdGrabStart, {1, 0}},
    {"vqdGrabStop", vqdGrabStop, {1, 0}},
    {"vqdReadFromDevice", [](int n) { return Frame().read(n); }, {1, 0, -1, -2, -3}},
};

void step(Input& input, VirtualUsb& usb, size_t devices)
{
    const int n = input.below(13) - 1;
    const size_t port = devices == 0 ? 0 : static_cast<size_t>(n + 1) % devices;
    const auto choice = static_cast<size_t>(input.below(11));
    if (choice == 0)
        return list(usb, devices);
    if (choice <= std::size(kSteps)) {
        const auto& [name, call, allowed] = kSteps[choice - 1];
        requireOneOf(call(n), allowed, name);
    } else if (choice == 7)
        m_nReopenTime = 600; // the application does not give up
    else if (choice == 8 && devices > 0)
        usb.unplug(port, input.below(2) ? sim::kNever : sim::TimeUs{input.take<uint32_t>()});
    else if (choice == 9 && devices > 0 && !usb.camera(port).plugged())
        usb.replug(port);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input input(data, size);
    FreshLibrary library;
    const auto devices = static_cast<size_t>(input.below(13));
    for (size_t i = 0; i < devices; ++i) {
        const sim::Config config = device(input);
        library.usb.plug(config, static_cast<uint8_t>(1 + input.below(2)));
    }
    if (input.below(2))
        lieAboutStrings(input, library.usb);
    failCalls(input, library.usb);
    list(library.usb, devices);
    for (int steps = 0; steps < 24 && input.left() > 0; ++steps)
        step(input, library.usb, devices);
    library.requireRecovery();
    return 0;
}
