// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Two streaming cameras on the real libusb vanish again and again at random moments, sometimes both, and come back
// after random times. Each must deliver its own frames again, and the process must not grow.
//   soak DISCONNECTS [SEED [transfers-fail-first]]
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <unistd.h>

#include "VQD_API.h"
#include "support/marked_source.h"
#include "support/test_bus.h"

namespace
{

constexpr int kCameras = 2;
constexpr int kTimeScale = 50;        // the library's sleeps and the cameras' clocks run this much faster
constexpr int kMostReads = 60;        // after a disconnect, until the camera delivers again
constexpr long kGrowthAllowed = 3072; // KiB of resident memory, from a quarter of the run to its end

struct Usage {
    long residentKib = 0;
    long files = 0;
};

// Taken at rest, because the bus forgets a device only half a second after its last user.
Usage usage()
{
    std::this_thread::sleep_for(std::chrono::seconds(1));
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    const std::filesystem::directory_iterator files("/proc/self/fd");
    return {pages * (sysconf(_SC_PAGESIZE) / 1024), std::distance(begin(files), end(files))};
}

class Soak
{
public:
    Soak(unsigned seed, bool transfersFailFirst)
        : m_bus(testBus({.timeScale = kTimeScale, .transfersFailFirst = transfersFailFirst})), m_random(seed)
    {
    }

    bool start()
    {
        for (unsigned n = 0; n < kCameras; ++n) {
            sim::Config config;
            config.product = "VQD-HT110";
            config.serial[6] = static_cast<uint8_t>(n + 1);
            config.source = m_sources[n];
            m_bus->add(config, kCameras - n); // the port at which libusb lists it as camera n
        }
        std::array<DevInfo, VQD_MAX_DEVICES> devices{};
        int count = 0;
        bool started = vqdGetDeviceList(devices.data(), &count) == 1 && count == kCameras;
        m_nUndistortionMode = 0;
        for (int n = 0; n < kCameras; ++n)
            started = started && vqdDeviceOpen(n) == 1 && vqdGrabStart(n) == 1;
        return started;
    }

    // One or both cameras vanish: in a transfer, between two, in a grab start or stop, or while being re-opened.
    unsigned disconnect()
    {
        const unsigned number = m_random() % kCameras;
        const unsigned lost = m_random() % 8 == 0 ? kCameras : 1;
        for (unsigned i = 0; i < lost; ++i)
            spoil((number + i) % kCameras);
        return lost;
    }

    bool goesOn(unsigned n)
    {
        int own = 0;
        for (int reads = 0; own < 3 && reads < kMostReads; ++reads) {
            uint16_t* images[] = {m_amplitude.data(), m_depth.data()};
            FrameInfo info{};
            if (vqdReadFromDevice(static_cast<int>(n), images, &info) != 1) {
                m_nReopenTime = 600;
                continue;
            }
            ++frames;
            own += m_sources[n]->wrongPixels(frameInBuffer(), m_amplitude.data(), m_depth.data()) == 0;
        }
        return own == 3;
    }

    unsigned long frames = 0;

private:
    void spoil(unsigned n)
    {
        using Channel = sim::Channel;
        static constexpr struct {
            Channel channel;
            int request;
        } kMoments[] = {{Channel::bulkIn, -1},    {Channel::bulkIn, -1},    {Channel::bulkOut, -1},
                        {Channel::control, 0xB1}, {Channel::control, 0xB2}, {Channel::control, 0xB4}};
        const auto& moment = kMoments[m_random() % std::size(kMoments)];
        const sim::TimeUs away = 20'000 + m_random() % 1'500'000;
        const unsigned nth = 1 + m_random() % 3;
        if (m_random() % 4 == 0)
            return m_bus->unplug(n, away);
        m_bus->withCamera(n, [&](sim::Camera& camera) {
            camera.addFault({.kind = sim::Fault::Kind::unplug,
                             .channel = moment.channel,
                             .request = moment.request,
                             .nth = nth,
                             .backAfter = away});
        });
        if (moment.channel != Channel::bulkIn) { // otherwise the next reads meet it
            vqdGrabStop(static_cast<int>(n));
            vqdReadBufInit(static_cast<int>(n));
            vqdGrabStart(static_cast<int>(n));
        }
    }

    const std::unique_ptr<sim::Bus> m_bus;
    std::mt19937 m_random;
    const std::array<std::shared_ptr<Marked>, kCameras> m_sources{std::make_shared<Marked>(uint16_t{1000}),
                                                                  std::make_shared<Marked>(uint16_t{1100})};
    std::array<uint16_t, VQD_PIXELS> m_amplitude{}, m_depth{};
};

int run(unsigned wanted, unsigned seed, bool transfersFailFirst)
{
    Soak soak(seed, transfersFailFirst);
    if (!soak.start())
        return fprintf(stderr, "the cameras do not start\n"), 1;
    Usage early;
    unsigned disconnects = 0;
    while (disconnects < wanted) {
        if (early.files == 0 && disconnects >= wanted / 4)
            early = usage();
        disconnects += soak.disconnect();
        for (unsigned n = 0; n < kCameras; ++n)
            if (!soak.goesOn(n))
                return fprintf(stderr, "camera %u is lost after %u disconnects, seed %u\n", n, disconnects, seed), 1;
    }
    const Usage late = usage();
    for (int n = 0; n < kCameras; ++n)
        vqdDeviceClose(n);
    fprintf(
        stderr,
        "%u disconnects, %lu frames, seed %u; from a quarter to the end: resident %ld to %ld KiB, files %ld to %ld\n",
        disconnects, soak.frames, seed, early.residentKib, late.residentKib, early.files, late.files);
    if (late.files > early.files || late.residentKib - early.residentKib > kGrowthAllowed)
        return fprintf(stderr, "the process grows\n"), 1;
    return 0;
}

} // namespace

extern "C" {

// The library's sleeps, shortened; a signal cuts them short as it does the real ones.
int usleep(useconds_t us)
{
    const timespec shortened{us / kTimeScale / 1'000'000, us / kTimeScale % 1'000'000 * 1000L};
    return nanosleep(&shortened, nullptr);
}
unsigned sleep(unsigned seconds)
{
    usleep(seconds * 1'000'000);
    return 0;
}

// Otherwise the freed blocks that the address sanitizer keeps would count as growth.
const char* __asan_default_options();
const char* __asan_default_options()
{
    return "quarantine_size_mb=4:verify_asan_link_order=0";
}

} // extern "C"

int main(int argc, char** argv)
{
    if (argc < 2)
        return fprintf(stderr, "usage: soak DISCONNECTS [SEED [transfers-fail-first]]\n"), 2;
    if (freopen("/dev/null", "w", stdout) == nullptr)
        return 1;
    const unsigned seed = argc > 2 ? static_cast<unsigned>(atoi(argv[2])) : 20261124u;
    return run(static_cast<unsigned>(atoi(argv[1])), seed, argc > 3 && std::string(argv[3]) == "transfers-fail-first");
}
