// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The camera's life from power-up to unplugging, its parameter image, and how a fault of the plan looks to the host.
#include "camera.h"

#include <algorithm>
#include <cmath>

#include "factory_tables.h"
#include "registers.h"

namespace sim
{

Camera::Camera(Config config) : eeprom(factoryEeprom(config)), m_config(std::move(config))
{
    for (const Fault& fault : m_config.faults)
        m_plan.add(fault);
    if (!hostCorrects(m_config.product))
        return;
    regions[kFppn4x4Region] = fppnTable();
    regions[kOrthogonalRegion] = orthogonalTable();
}

void Camera::addFault(const Fault& fault)
{
    m_plan.add(fault);
}

Outcome Camera::control(const Setup& setup, std::span<uint8_t> data, TimeUs now)
{
    if (!m_plugged)
        return {Status::noDevice};
    if (!m_poweredAt)
        m_poweredAt = now;
    if (now < m_silentUntil)
        return {Status::timeout, 0, false};
    data = data.first(std::min<size_t>(data.size(), setup.length));
    const bool vendor = (setup.requestType & 0x60) == kVendorOut;
    if (!vendor)
        return answerStandard(setup, data);

    const auto fault = m_plan.meet(m_framesSent, Channel::control, setup.request);
    if (!fault)
        return answer(setup, data, now);
    if (const auto spoilt = spoil(*fault, now))
        return *spoilt;
    if (fault->kind == Fault::Kind::shortened)
        data = data.first(std::min(data.size(), fault->bytes));
    return answer(setup, data, now);
}

Outcome Camera::bulkOut(uint8_t endpoint, std::span<const uint8_t> data, TimeUs now)
{
    if (!m_plugged)
        return {Status::noDevice};
    if (endpoint != kBulkOut)
        return {Status::stall};
    if (now < m_silentUntil)
        return {Status::timeout, 0, false};
    if (const auto fault = m_plan.meet(m_framesSent, Channel::bulkOut)) {
        if (const auto spoilt = spoil(*fault, now)) {
            m_outHalted = m_outHalted || spoilt->status == Status::stall;
            return *spoilt;
        }
        // The line went quiet in the middle of the image: the host sees a short success, the camera has no image.
        if (!m_outHalted && fault->kind == Fault::Kind::shortened && fault->bytes < data.size())
            return {Status::ok, fault->bytes};
    }
    m_outHalted = m_outHalted || !m_armed || data.size() != kImageBytes;
    if (m_outHalted)
        return {Status::stall};
    m_armed = false;
    takeImage(data, now);
    return {Status::ok, kImageBytes};
}

// What ends a transfer before the camera acts on it; nothing for `shortened` and `badStartCode`, which let the camera
// act.
std::optional<Outcome> Camera::spoil(Fault fault, TimeUs now)
{
    switch (fault.kind) {
    case Fault::Kind::stall:
        return Outcome{Status::stall};
    case Fault::Kind::timeout:
        return Outcome{Status::timeout, 0, false};
    case Fault::Kind::overflow:
        return Outcome{Status::overflow};
    case Fault::Kind::ioError:
        return Outcome{Status::ioError};
    case Fault::Kind::noMemory:
        return Outcome{Status::noMemory};
    case Fault::Kind::unplug:
        unplug(now, fault.backAfter);
        return Outcome{Status::noDevice};
    case Fault::Kind::silence:
        m_silentUntil = addTime(now, std::max<TimeUs>(fault.backAfter, 0));
        return Outcome{Status::timeout, 0, false};
    case Fault::Kind::shortened:
    case Fault::Kind::badStartCode:
        break;
    }
    return std::nullopt;
}

void Camera::takeImage(std::span<const uint8_t> image, TimeUs now)
{
    std::copy(image.begin(), image.end(), registers.begin());
    m_grabbing = registers[kEnable] == 1;
    m_clock.setPeriod(now, framePeriod());
    if (m_grabbing && !m_clock.running())
        m_clock.start(now, framePeriod());
    if (!m_grabbing && !m_config.darkFrames)
        stopStream(now);
}

TimeUs Camera::framePeriod() const
{
    constexpr double kLongestUs = 1e12;
    if (const auto interval = m_config.source ? m_config.source->interval() : std::nullopt)
        return std::max<TimeUs>(*interval, 0);
    const double rate = m_config.framesPerSecond;
    if (!(rate > 0))
        return 0;
    const auto exposure = static_cast<TimeUs>(std::lround(std::min(1e6 / rate, kLongestUs)));
    return exposure + 1000 * std::min(registers[kFrameDelay], kMaxFrameDelay);
}

void Camera::stopStream(TimeUs now)
{
    m_grabbing = false;
    m_clock.stop(now);
    emptyFifo();
}

void Camera::reset(TimeUs now)
{
    stopStream(now);
    m_armed = false;
    m_run = {};
    m_configuration = 1;
    m_outHalted = m_inHalted = false;
    m_transferFault.reset();
}

void Camera::unplug(TimeUs now, TimeUs backAfter)
{
    reset(now);
    m_plugged = false;
    m_returnsAt = addTime(now, std::max<TimeUs>(backAfter, 0));
}

void Camera::plug(TimeUs now)
{
    if (m_plugged)
        return;
    m_plugged = true;
    m_returnsAt = kNever;
    m_poweredAt = now;
    m_silentUntil = INT64_MIN;
    m_clock = {};
    registers = {};
}

} // namespace sim
