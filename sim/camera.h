// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The camera as the host sees it over USB: a state machine without input or output. It answers vendor requests, takes
// parameter images, keeps EEPROM and table regions, produces frames at its rate while grabbing and follows a fault
// plan. The caller brings the transfers and the time, so tests, fuzzers and the virtual bus all drive the same device.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "fault_plan.h"
#include "frame_clock.h"
#include "frame_source.h"
#include "wire.h"

namespace sim
{

struct Config {
    std::string product = "VQD-HT120";
    std::string manufacturer = "VQD";
    uint16_t vendorId = 0x03A4;
    uint16_t productId = 0x871A;
    std::array<uint8_t, 7> serial = {0x24, 0x06, 0x11, 0x00, 0x00, 0x00, 0x01};
    double framesPerSecond = 30;         // 0: a frame is always ready, whatever the frame delay
    uint8_t logicVersion[2] = {2, 5};    // first and second number
    std::shared_ptr<FrameSource> source; // none: frames of zeros
    std::vector<Fault> faults;
    // Keeps sending, dark, while byte 11 is not 1 after a start, as models with a separate illumination driver do. A
    // FIFO reset (0xB2, 0xB4), a USB reset and unplugging end that.
    bool darkFrames = false;
};

class Camera
{
public:
    explicit Camera(Config config);

    const Config& config() const { return m_config; }

    // Descriptors as they travel: 18 bytes, and the configuration block with one interface, endpoints 0x02 and 0x86.
    std::vector<uint8_t> deviceDescriptor() const;
    std::vector<uint8_t> configDescriptor() const;

    // Endpoint 0. OUT: `data` is what the host sent. IN: receives up to setup.length bytes. Answers the vendor requests
    // and the standard ones that every device answers; stalls the rest.
    Outcome control(const Setup& setup, std::span<uint8_t> data, TimeUs now);

    // Endpoint 0x02: one parameter image. The camera takes it only after request 0xB1, else it stalls. A bulk endpoint
    // that stalled once does so until the host clears its halt, configures the camera or resets it.
    Outcome bulkOut(uint8_t endpoint, std::span<const uint8_t> data, TimeUs now);

    // The host starts a transfer on endpoint 0x86. Here, and only here, the fault plan counts bulk IN transfers; a read
    // that libusb splits into several URBs counts once if this is called once.
    void beginBulkIn(TimeUs now);

    // The transfer that has begun is one for which the host has no memory. Asking ends the fault, as the refusal does.
    bool refusedByHost();

    // Endpoint 0x86: moves what is there now into `data`. Call again at nextBulkIn() while the outcome is not complete.
    // A transfer that the fault plan silences says Status::timeout and is never complete.
    Outcome bulkIn(uint8_t endpoint, std::span<uint8_t> data, TimeUs now);

    // When bulkIn() will have bytes (or a fault) to deliver: `now` or earlier when at once, kNever while nothing is
    // coming.
    TimeUs nextBulkIn(TimeUs now) const;

    // A USB reset: grabbing stops, the FIFO empties, halts end, the working registers stay.
    void reset(TimeUs now);

    // Unplug and plug in. A camera that comes back starts from power-up; EEPROM, table regions and the fault plan go
    // on.
    void unplug(TimeUs now, TimeUs backAfter = kNever);
    void plug(TimeUs now);
    bool plugged() const { return m_plugged; }
    // When an unplugged camera wants to come back; kNever if it does not.
    TimeUs returnsAt() const { return m_returnsAt; }

    // The device's memory, for tests and for preparing a camera.
    Eeprom eeprom;
    Image registers{};                                // the image that the last bulk OUT carried
    std::map<uint16_t, std::vector<uint8_t>> regions; // table regions by wValue; empty ones read as zeros
    bool grabbing() const { return m_grabbing; }
    uint64_t framesSent() const { return m_framesSent; }
    void addFault(const Fault& fault);

private:
    struct Run { // of table chunks that follow each other
        uint16_t region = 0;
        uint16_t chunk = 0; // 0: none under way
        size_t written = 0;
    };

    Outcome answer(const Setup& setup, std::span<uint8_t> data, TimeUs now);
    Outcome answerStandard(const Setup& setup, std::span<uint8_t> data);
    bool* haltOf(uint16_t endpoint);
    void command(uint8_t request, TimeUs now);
    Outcome writeTable(const Setup& setup, std::span<const uint8_t> data);
    Outcome readTable(const Setup& setup, std::span<uint8_t> data);
    std::vector<uint8_t> stringDescriptor(uint8_t index) const;

    std::optional<Outcome> spoil(Fault fault, TimeUs now);
    void takeImage(std::span<const uint8_t> image, TimeUs now);
    void stopStream(TimeUs now);
    TimeUs framePeriod() const;

    void emptyFifo();
    void resetFifo(TimeUs now);
    size_t fifoBytes() const { return m_fifo.size() - m_fifoRead; }
    Outcome drain(std::span<uint8_t> data, TimeUs now);
    Outcome cutShort(std::span<uint8_t> data, TimeUs now);
    Outcome waiting(size_t moved) const;
    bool refill(TimeUs now);
    Replay replay(const FrameRequest& request);
    void writeHeader(uint64_t index);
    void render(const FrameRequest& request);

    Config m_config;
    FaultPlan m_plan;
    bool m_plugged = true;
    TimeUs m_returnsAt = kNever;
    TimeUs m_silentUntil = INT64_MIN;
    std::optional<TimeUs> m_poweredAt; // the first time that the camera hears of
    bool m_armed = false;              // after 0xB1: the next bulk OUT is an image
    Run m_run;
    uint8_t m_configuration = 1; // a host's kernel chooses it before anyone asks
    bool m_outHalted = false, m_inHalted = false;

    bool m_grabbing = false;
    FrameClock m_clock;          // runs while frames come, lit or dark
    std::vector<uint8_t> m_fifo; // one frame or one residue block, read up to m_fifoRead
    size_t m_fifoRead = 0;
    std::vector<uint16_t> m_planes; // scratch: amplitude, then depth
    uint64_t m_framesSent = 0;      // frames whose last byte has left, also over a re-plug

    std::optional<Fault> m_transferFault; // of the bulk IN transfer under way
    size_t m_transferMoved = 0;
};

// The EEPROM content of a new camera: signature, factory settings, serial number and lens.
Eeprom factoryEeprom(const Config& config);

// As lower-case hexadecimal digits: the form of serial numbers, and of numbers in sysfs.
std::string hexDigits(std::span<const uint8_t> bytes);

} // namespace sim
