// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A worker's loop when somebody exchanges the camera at the end of the cable. The library opens whatever it finds
// there.
#include <cstdlib>

#include <gtest/gtest.h>

#include "host/camera_list.h"
#include "host/claim.h"
#include "sim/fault_language.h"
#include "support/test_bus.h"
#include "worker/camera_loop.h"

namespace
{

// Exchanges the camera before it is unplugged, and counts frames.
struct Exchanging : Sink {
    Exchanging(sim::Bus& bus, size_t byte) : bus(bus), byte(byte) {}
    void frame(const FrameView&) override
    {
        if (++frames == 1)
            bus.withCamera(0, [this](sim::Camera& camera) { camera.eeprom[byte] ^= 1; });
    }
    void parameters(const Parameters&) override {}
    void event(const Json&) override {}

    sim::Bus& bus;
    const size_t byte;
    int frames = 0;
};

// The session's header and parameters name the first camera, so it must not deliver another one's frames.
class SwappedCamera : public testing::TestWithParam<size_t>
{
};

TEST_P(SwappedCamera, EndsTheSession)
{
    const std::unique_ptr<sim::Bus> bus = testBus({});
    sim::Config config;
    config.framesPerSecond = 60;
    config.faults.push_back(sim::parseFaultPlan("unplug after frame 5, back after 300 ms", 1)[0].fault);
    bus->add(config);
    const std::vector<ListedCamera> cameras = listCameras();
    requireClaim(cameras[0]);
    Exchanging sink(*bus, GetParam());
    Sink* const sinks[] = {&sink};
    WorkerState state;
    RequestQueue requests;
    CameraLoop loop(cameras[0], {.sinks = sinks,
                                 .state = state,
                                 .requests = requests,
                                 .recorder = nullptr,
                                 .reply = [](const PendingRequest&, const Json&) {},
                                 .stops = [&] { return sink.frames > 20; }});
    EXPECT_THROW(loop.run(), Failure);
    EXPECT_LE(sink.frames, 5);
    closeClaimed();
}

// The last byte of the serial number, and the first of the lens
INSTANTIATE_TEST_SUITE_P(OfAnotherSerialNumberOrLens, SwappedCamera, testing::Values(63, 80));

} // namespace
