// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The read buffer behind endpoint 0x86: frames at their rate, packet by packet, and the faults of bulk IN
// transfers.
#include "camera.h"

#include <algorithm>
#include <cstdlib>

#include "frame_effects.h"
#include "registers.h"

namespace sim
{

void Camera::emptyFifo()
{
    m_fifo.clear();
    m_fifoRead = 0;
}

// The next byte to leave is the first of a frame that is complete after now.
void Camera::resetFifo(TimeUs now)
{
    emptyFifo();
    m_clock.skip(now);
    if (!m_grabbing)
        m_clock.stop(now);
}

void Camera::beginBulkIn(TimeUs now)
{
    m_transferMoved = 0;
    m_transferFault.reset();
    if (!m_plugged || now < m_silentUntil)
        return;
    m_transferFault = m_plan.meet(m_framesSent, Channel::bulkIn);
    if (m_transferFault && m_transferFault->kind == Fault::Kind::silence) {
        spoil(*m_transferFault, now);
        m_transferFault.reset(); // the transfer goes on when the silence is over
    }
}

bool Camera::refusedByHost()
{
    const bool refused = m_transferFault && m_transferFault->kind == Fault::Kind::noMemory;
    if (refused)
        m_transferFault.reset();
    return refused;
}

Outcome Camera::bulkIn(uint8_t endpoint, std::span<uint8_t> data, TimeUs now)
{
    if (!m_plugged)
        return {Status::noDevice};
    if (endpoint != kBulkIn)
        return {Status::stall};
    if (now < m_silentUntil)
        return {Status::ok, 0, false};
    if (m_transferFault) {
        if (const auto spoilt = spoil(*m_transferFault, now)) {
            if (spoilt->complete)
                m_transferFault.reset();
            m_inHalted = m_inHalted || spoilt->status == Status::stall;
            return *spoilt;
        }
    }
    if (m_inHalted)
        return {Status::stall};
    if (m_transferFault && m_transferFault->kind == Fault::Kind::shortened)
        return cutShort(data, now);
    return drain(data, now);
}

// Ends the transfer after the fault's bytes; the camera has sent the rest of its frame to nobody.
Outcome Camera::cutShort(std::span<uint8_t> data, TimeUs now)
{
    const size_t left = m_transferFault->bytes - std::min(m_transferFault->bytes, m_transferMoved);
    if (left >= data.size())
        return drain(data, now);
    if (fifoBytes() == 0 && !refill(now))
        return waiting(0);
    if (left > fifoBytes()) // a block ends before; the cut comes in the next one
        return {Status::ok, drain(data.first(fifoBytes()), now).bytes, false};
    std::copy_n(m_fifo.begin() + static_cast<std::ptrdiff_t>(m_fifoRead), left, data.begin());
    emptyFifo();
    m_transferFault.reset();
    return {Status::ok, left, true};
}

Outcome Camera::drain(std::span<uint8_t> data, TimeUs now)
{
    size_t moved = 0;
    while (moved < data.size()) {
        if (fifoBytes() == 0 && !refill(now))
            return waiting(moved);
        const size_t packets = (data.size() - moved) / kPacketBytes * kPacketBytes;
        if (packets == 0)
            return {Status::overflow, moved}; // the next packet is larger than the room that is left
        const size_t count = std::min(packets, fifoBytes());
        std::copy_n(m_fifo.begin() + static_cast<std::ptrdiff_t>(m_fifoRead), count,
                    data.begin() + static_cast<std::ptrdiff_t>(moved));
        m_fifoRead += count;
        m_transferMoved += count;
        moved += count;
        if (fifoBytes() == 0 && m_fifo.size() == kFrameBytes)
            m_framesSent++;
    }
    return {Status::ok, moved};
}

TimeUs Camera::nextBulkIn(TimeUs now) const
{
    if (!m_plugged)
        return now;
    if (now < m_silentUntil)
        return m_silentUntil;
    if (m_transferFault && m_transferFault->kind == Fault::Kind::timeout)
        return kNever;
    const bool letsThrough = !m_transferFault || m_transferFault->kind == Fault::Kind::shortened ||
                             m_transferFault->kind == Fault::Kind::badStartCode;
    if (!letsThrough || m_inHalted || fifoBytes() > 0)
        return now;
    return m_clock.nextFrame(now);
}

// There is no frame: more may come later, unless the last one of a recording was sent.
Outcome Camera::waiting(size_t moved) const
{
    if (!m_plugged)
        return {Status::noDevice, moved};
    return {Status::ok, moved, false};
}

// Loads the newest complete frame. The registers of this moment shape it, also if it was exposed a little
// earlier.
bool Camera::refill(TimeUs now)
{
    const auto frame = m_clock.take(now);
    if (!frame)
        return false;
    m_fifo.assign(kFrameBytes, 0);
    m_fifoRead = 0;
    const TimeUs sincePowerUp = std::max<TimeUs>(frame->completed - m_poweredAt.value_or(0), 0);
    const FrameRequest request{frame->index, sincePowerUp, registers, m_config.product};
    switch (replay(request)) {
    case Replay::end:
        unplug(now);
        return false;
    case Replay::frame:
        m_clock.setPeriod(now, framePeriod());
        break;
    case Replay::none:
        writeHeader(frame->index);
        render(request);
    }
    if (m_transferFault && m_transferFault->kind == Fault::Kind::badStartCode) {
        m_fifo[kStart0] = 0xBB;
        m_transferFault.reset();
    }
    return true;
}

Replay Camera::replay(const FrameRequest& request)
{
    if (!m_grabbing || !m_config.source)
        return Replay::none;
    return m_config.source->replay(request, std::span(m_fifo).first<kFrameBytes>());
}

// 38 degrees, rising and falling by 1.5 over 18000 frames; 16 counts a degree.
static uint16_t temperatureCounts(uint64_t index)
{
    constexpr uint64_t kHalfCycle = 9000;
    constexpr int kMiddle = 38 * 16, kSwing = 24;
    const auto phase = static_cast<int>(index % (2 * kHalfCycle));
    const int rise = std::abs(phase - static_cast<int>(kHalfCycle)); // 9000 ... 0 ... 9000
    return static_cast<uint16_t>(kMiddle + kSwing - 2 * kSwing * rise / static_cast<int>(kHalfCycle));
}

void Camera::writeHeader(uint64_t index)
{
    m_fifo[kStart0] = kStartCode0;
    m_fifo[kStart1] = kStartCode1;
    const uint16_t temperature = temperatureCounts(index);
    m_fifo[kTemperature] = static_cast<uint8_t>(temperature & 0xFF);
    m_fifo[kTemperature + 1] = static_cast<uint8_t>(temperature >> 8);
    m_fifo[kVersionFirst] = m_config.logicVersion[0];
    m_fifo[kVersionSecond] = m_config.logicVersion[1];
    for (size_t i = 0; i < 8; i++)
        m_fifo[kFrameNumber + i] = static_cast<uint8_t>(index >> (8 * i) & 0xFF);
}

void Camera::render(const FrameRequest& request)
{
    m_planes.assign(2 * kPixels, 0);
    const FramePlanes planes = {std::span(m_planes).first<kPixels>(), std::span(m_planes).last<kPixels>()};
    if (m_grabbing) {
        if (m_config.source)
            m_config.source->render(request, planes.amplitude, planes.depth);
        applyRegisters(registers, !hostCorrects(m_config.product), planes);
    } else {
        darken(request.index, planes);
    }
    auto byte = m_fifo.begin() + kHeaderBytes;
    for (const uint16_t value : m_planes) {
        *byte++ = static_cast<uint8_t>(value & 0xFF);
        *byte++ = static_cast<uint8_t>(value >> 8);
    }
}

} // namespace sim
