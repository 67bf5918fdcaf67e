// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// All calls of the library after the claim are made here, from one thread.
#include "worker/camera_loop.h"

#include <algorithm>
#include <array>

#include "host/eeprom_fields.h"
#include "host/lens_json.h"
#include "host/parameters_json.h"
#include "host/profile.h"
#include "worker/answers.h"

namespace
{

using Clock = std::chrono::steady_clock;

// Tries of a search for a lost camera, each 0.1 s and more. The library would make 101; a new process finds the camera
// as well, and can say meanwhile what it waits for.
constexpr int kBudget = 540; // 40 above the number at which the library gives up

std::exception_ptr caught(const std::function<void()>& work)
{
    try {
        work();
        return nullptr;
    } catch (...) {
        return std::current_exception();
    }
}

// The library's getters put the stored values in the place of a profile's exact ones, so those are kept and put back.
Json lensInUse(const ListedCamera& camera)
{
    struct Set {
        const char* name;
        float (&k)[4], (&d)[6];
    };
    const int n = camera.nIndex;
    const Set sets[] = {{"depth", m_fIntrinsicParam[n], m_fDistorParam[n]},
                        {"colour", m_fRGBIntrinsicParam[n], m_fRGBDistorParam[n]}};
    std::array<float, std::size(kIntrinsicNames)> k[std::size(sets)];
    std::array<float, std::size(kDistortionNames)> d[std::size(sets)];
    for (size_t i = 0; i < std::size(sets); ++i) {
        std::ranges::copy(sets[i].k, k[i].begin());
        std::ranges::copy(sets[i].d, d[i].begin());
    }
    Json lens = calibrationJson(camera);
    if (profileInUse(camera).empty())
        return lens;
    for (size_t i = 0; i < std::size(sets); ++i) {
        std::ranges::copy(k[i], sets[i].k);
        std::ranges::copy(d[i], sets[i].d);
        for (size_t j = 0; j < k[i].size(); ++j)
            lens[sets[i].name][kIntrinsicNames[j]] = k[i][j];
        for (size_t j = 0; j < d[i].size(); ++j)
            lens[sets[i].name][kDistortionNames[j]] = d[i][j];
    }
    return lens;
}

} // namespace

CameraLoop::CameraLoop(const ListedCamera& camera, Parts parts)
    : m_camera(camera), m_parts(std::move(parts)), m_lens(lensInUse(camera))
{
    if (camera.known == Known::read) // zeros otherwise
        std::string(camera.szSerialNumber).copy(m_header.serial, sizeof m_header.serial - 1);
    m_header.session = m_parts.state.session();
    if (!profileInUse(camera).empty())
        m_header.flags |= VQD_WIRE_PROFILE;
    m_header.width = VQD_WIDTH;
    m_header.height = VQD_HEIGHT;
    m_header.plane_bytes = 2 * VQD_PIXELS * sizeof(uint16_t);
}

void CameraLoop::run()
{
    start();
    tellParameters();
    m_parts.state.change([](auto& values) { values.state = "streaming"; });
    while (!m_parts.stops() && !m_stopped) {
        readFrame();
        answerRequests();
    }
}

void CameraLoop::start()
{
    const auto lost = [this] {
        m_parts.state.change([](auto& values) { values.state = "lost"; });
        tell(eventOf("lost"));
    };
    const auto noMemory = [this] {
        Json event = eventOf("no-memory");
        event["text"] = NoUsbMemory().what();
        tell(event);
    };
    m_stream.emplace(m_camera, StreamEvents{{lost, {}}, {}, noMemory});
}

void CameraLoop::tellParameters()
{
    const int n = m_camera.nIndex;
    unsigned char image[VQD_IMAGE_BYTES];
    if (vqdParameterData_Load(n, image) != 1)
        failOn(m_camera, "the camera's parameters could not be loaded");
    const Parameters parameters{parametersJson(m_camera, m_lens, image), image};
    m_header.flags &= ~uint32_t{VQD_WIRE_CORRECTED};
    if (changesFrames(m_camera))
        m_header.flags |= VQD_WIRE_CORRECTED;
    if (const double interval = nominalInterval(n); interval != std::exchange(m_interval, interval))
        m_arrivals.emplace(interval);
    const std::lock_guard lock(m_sinks);
    for (Sink* sink : m_parts.sinks)
        sink->parameters(parameters);
}

void CameraLoop::tell(const Json& event)
{
    const std::lock_guard lock(m_sinks);
    for (Sink* sink : m_parts.sinks)
        sink->event(event);
}

void CameraLoop::answerRequests()
{
    const RequestTarget target{m_camera,
                               [this](const std::function<void()>& work) {
                                   m_stream.reset();
                                   const std::exception_ptr failure = caught(work);
                                   start();
                                   m_arrivals.emplace(m_interval); // the pause lost no frames
                                   if (failure)
                                       std::rethrow_exception(failure);
                               },
                               m_parts.recorder, m_parts.watch};
    for (const PendingRequest& pending : m_parts.requests.takeAll()) {
        try {
            RequestEffect effect = answer(pending.request, target);
            if (effect.changed) {
                tellParameters();
                // Readers may have older frames before them.
                effect.reply["after"] = {{"session", m_header.session}, {"frame", m_header.sequence}};
            }
            if (!effect.event.is_null())
                tell(effect.event);
            m_stopped = m_stopped || effect.stop;
            m_parts.reply(pending, effect.reply);
        } catch (const std::exception& why) {
            m_parts.reply(pending, refusal(why));
            if (!m_stream) // it was stopped for the request, and does not start again
                throw;
        }
    }
}

void CameraLoop::readFrame()
{
    const auto began = Clock::now();
    m_nReopenTime = kBudget;
    const bool hasFrame = m_stream->tryRead(*m_frame);
    if (const int failed = countStarting(m_stream->lines(), kTransferFailed); failed > 0)
        m_parts.state.change([&](auto& values) { values.failedTransfers += static_cast<uint64_t>(failed); });
    if (hasFrame) {
        m_reopensInARow = 0;
        hand(began);
    } else {
        cameBack();
    }
}

// A read that opened the camera again brings no frame.
void CameraLoop::cameBack()
{
    constexpr int kMost = 3;
    if (++m_reopensInARow == kMost)
        throw Failure(kCameraLost, "the camera sends no frames, not even after " + std::to_string(kMost) + " re-opens");
    followToAddress();
    requireSameCamera();
    m_header.flags |= VQD_WIRE_REOPENED;
    m_parts.state.change([](auto& values) {
        values.state = "streaming";
        ++values.reopens;
    });
    tell(eventOf("reopened"));
}

// What is plugged in again has a new address. At another port this process's lock is not that camera's.
void CameraLoop::followToAddress()
{
    if (m_camera.place.port.empty())
        return;
    const std::vector<Place> places = cameraPlaces();
    const auto place = std::ranges::find(places, m_camera.place.port, &Place::port);
    if (place == places.end())
        throw Failure(kCameraLost, "the camera was plugged into another port");
    m_camera.place = *place;
}

// The library opens whatever camera it finds. Another one needs a session with its own serial number and lens.
void CameraLoop::requireSameCamera() const
{
    if (m_camera.known != Known::read)
        return;
    const EepromRead now = readEeprom(m_camera.place);
    if (now.whole() &&
        (serialOf(now.bytes) != serialOf(m_camera.eeprom) || fingerprint(now.bytes) != fingerprint(m_camera.eeprom)))
        throw Failure(kCameraLost,
                      "another camera was plugged in where camera " + std::string(m_camera.szSerialNumber) + " was");
}

void CameraLoop::hand(Clock::time_point began)
{
    const HostTime time = m_stream->time();
    const bool reopened = (m_header.flags & VQD_WIRE_REOPENED) != 0;
    const Arrival arrival =
        m_arrivals->add(began, Clock::time_point(std::chrono::nanoseconds(time.monotonic)), reopened);
    if (const std::optional<double> step = m_clock.step(time)) {
        m_header.flags |= VQD_WIRE_CLOCK_STEP;
        Json event = eventOf("clock-step");
        event["seconds"] = *step;
        tell(event);
    }
    const double gap = static_cast<double>(time.monotonic - m_header.monotonic_time_ns) / 1e9;
    const bool first = m_header.sequence++ == 0;
    m_header.real_time_ns = time.real;
    m_header.monotonic_time_ns = time.monotonic;
    m_header.stamp_ms = m_frame->info.nTimeStamp;
    m_header.count = m_frame->info.nFrameCount;
    m_header.temperature = m_dTemperature[m_camera.nIndex];
    m_header.dropped = static_cast<uint32_t>(arrival.lost);
    {
        const std::lock_guard lock(m_sinks);
        for (Sink* sink : m_parts.sinks)
            sink->frame({buffers, *m_frame, m_header});
    }
    m_parts.state.change([&](auto& values) {
        values.frames = m_header.sequence;
        values.dropped += m_header.dropped;
        values.temperature = m_header.temperature;
        values.longestGap = first ? 0 : std::max(values.longestGap, gap);
        values.rate.add(time.monotonic);
    });
    m_header.flags &= ~uint32_t{VQD_WIRE_REOPENED | VQD_WIRE_CLOCK_STEP};
}
