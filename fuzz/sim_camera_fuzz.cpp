// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The virtual camera under any requests and transfers, in any order, of any length, at any time, with any fault plan.
#include <cmath>

#include "camera.h"
#include "input.h"
#include "scene.h"

using namespace sim;

namespace
{

Config configuration(Input& input)
{
    static constexpr double kRates[] = {0, 30, 1e-9, 1e9, -1, NAN, HUGE_VAL};
    static const std::shared_ptr<FrameSource> scene = makeScene({.kind = SceneKind::ramp}); // the same for each input
    Config config;
    const uint8_t kind = input.take();
    config.framesPerSecond = input.of(kRates);
    config.darkFrames = kind & 1;
    if (kind & 2)
        config.product = input.text();
    if (kind & 4)
        config.manufacturer = input.text();
    if (kind & 8)
        config.source = scene;
    return config;
}

Fault fault(Input& input)
{
    Fault fault;
    fault.kind = static_cast<Fault::Kind>(input.below(8));
    fault.channel = static_cast<Channel>(input.below(4));
    fault.request = input.below(2) ? 0xB0 + input.below(16) : -1;
    fault.nth = static_cast<unsigned>(input.below(16)); // low, so that the input reaches it
    fault.times = static_cast<unsigned>(input.below(4));
    fault.bytes = input.take<uint32_t>();
    fault.backAfter = input.below(2) ? kNever : input.take<int64_t>();
    fault.afterFrames = input.below(4);
    return fault;
}

constexpr TimeUs kEndOfTime = kNever / 2; // of a host; the camera's own times may lie beyond

struct Host {
    Camera camera;
    TimeUs now = 0;

    void control(Input& input)
    {
        static constexpr uint8_t kTypes[] = {0x40, 0xC0, 0x80, 0x00, 0x01, 0x81};
        static constexpr uint8_t kRequests[] = {0xB1, 0xB2, 0xB3, 0xB4, 0xB7, 0xB8, 0xBA, 0xBB, 0, 6, 9, 11};
        static constexpr uint16_t kValues[] = {0,      0x1200, 0x2000, 0x0F00, 0x4000, 0x5800,
                                               0x7000, 0x0100, 0x0200, 0x0301, 0x0302, 0x0303};
        static constexpr uint16_t kLengths[] = {64, 128, 256, 4096, 9600, 0, 18};
        const bool usual = input.below(4) != 0;
        Setup setup{};
        setup.requestType = usual ? input.of(kTypes) : input.take();
        setup.request = usual ? input.of(kRequests) : input.take();
        setup.value = usual ? input.of(kValues) : input.take<uint16_t>();
        setup.index = usual ? uint16_t{0} : input.take<uint16_t>();
        setup.length = usual ? input.of(kLengths) : input.take<uint16_t>();
        std::vector<uint8_t> data(input.below(4) != 0 ? setup.length : input.take<uint16_t>());
        input.fill<uint8_t>(data);
        const Outcome outcome = camera.control(setup, data, now);
        require(outcome.bytes <= data.size() && outcome.bytes <= setup.length, "no more moves than was asked for");
    }

    void bulkOut(Input& input)
    {
        std::vector<uint8_t> data(input.below(4) != 0 ? kImageBytes : input.take<uint16_t>());
        input.fill<uint8_t>(data);
        if (data.size() > 33 && input.below(2))
            data[11] = 1; // grab
        const Outcome outcome = camera.bulkOut(input.below(8) != 0 ? kBulkOut : input.take(), data, now);
        require(outcome.bytes <= data.size(), "no more is taken than was sent");
    }

    // Goes on with the transfer while bytes are due, as a host controller does.
    void bulkIn(Input& input, bool wait)
    {
        std::vector<uint8_t> data(input.below(4) != 0 ? kFrameBytes : input.take<uint32_t>() % (2 * kFrameBytes));
        const uint8_t endpoint = input.below(8) != 0 ? kBulkIn : input.take();
        camera.beginBulkIn(now);
        size_t moved = 0;
        for (int rounds = 0; rounds < 1000; ++rounds) {
            const Outcome outcome = camera.bulkIn(endpoint, std::span(data).subspan(moved), now);
            moved += outcome.bytes;
            require(moved <= data.size(), "no more arrives than there is room for");
            if (outcome.status != Status::ok || outcome.complete)
                return;
            const TimeUs next = camera.nextBulkIn(now);
            if (next > now && (!wait || next > kEndOfTime))
                return;
            now = std::max(now, next);
        }
        require(false, "a transfer comes to its end");
    }

    void step(Input& input)
    {
        switch (input.below(9)) {
        case 0:
        case 1:
        case 2:
            return control(input);
        case 3:
            return bulkOut(input);
        case 4:
        case 5:
            return bulkIn(input, input.below(2));
        case 6:
            return camera.reset(now);
        case 7:
            return camera.plugged() ? camera.unplug(now, input.take<int64_t>()) : camera.plug(now);
        default:
            now = addTime(now, input.below(8) != 0 ? input.take<uint32_t>() : input.take<int64_t>() & kNever);
            now = std::min(now, kEndOfTime);
        }
    }
};

// Whatever happened, a camera without faults can be plugged in again and delivers a whole frame.
void requireFrame(Host& host)
{
    Camera& camera = host.camera;
    camera.unplug(host.now);
    camera.plug(host.now);
    std::vector<uint8_t> bytes(64);
    require(camera.control({0x40, 0xB1, 0, 0, 64}, bytes, host.now).status == Status::ok, "it takes an image");
    bytes.assign(kImageBytes, 0);
    bytes[11] = 1;
    require(camera.bulkOut(kBulkOut, bytes, host.now).status == Status::ok, "and gets one");
    camera.beginBulkIn(host.now);
    const TimeUs next = camera.nextBulkIn(host.now);
    require(next != kNever, "a frame is coming");
    bytes.assign(kFrameBytes, 0);
    const Outcome outcome = camera.bulkIn(kBulkIn, bytes, next);
    require(outcome.complete && outcome.bytes == kFrameBytes, "it comes whole");
    require(bytes[0] == 0x44 && bytes[1] == 0x33, "with its start code");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input input(data, size);
    Host host{Camera(configuration(input))};
    const int faults = input.below(4);
    for (int i = 0; i < faults; ++i)
        host.camera.addFault(fault(input));
    for (int steps = 0; steps < 64 && input.left() > 0; ++steps)
        host.step(input);
    if (faults == 0)
        requireFrame(host);
    return 0;
}
