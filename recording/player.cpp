// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A frame is read ahead, because the time until the next one must be known when a frame is sent.
#include "recording/player.h"

#include <algorithm>
#include <charconv>

#include "sim/registers.h"

namespace
{

// What the gaps of a recording become: a pause of some minutes would be one in which nothing can be tested, and the
// library takes a camera that is quiet for some seconds as lost.
constexpr sim::TimeUs kUsualInterval = 33'333, kLeastInterval = 1'000, kMostInterval = 1'000'000;

uint16_t hexadecimal(std::string_view text)
{
    uint16_t value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value, 16);
    return value;
}

} // namespace

sim::Config playedConfig(const CameraFacts& camera)
{
    sim::Config config;
    config.product = camera.product;
    config.manufacturer = camera.vendor;
    config.vendorId = hexadecimal(std::string_view(camera.usb).substr(0, 4)); // "03a4:871a"
    config.productId = hexadecimal(std::string_view(camera.usb).substr(5));
    config.serial = {}; // of a camera whose number is not known: any other may be that of a real one
    for (size_t i = 0; i < config.serial.size() && 2 * i + 1 < camera.serial.size(); ++i)
        config.serial[i] = static_cast<uint8_t>(hexadecimal(std::string_view(camera.serial).substr(2 * i, 2)));
    return config;
}

sim::Eeprom playedEeprom(const CameraFacts& camera, const RecordedParameters* first)
{
    sim::Eeprom eeprom;
    const Bytes& known = first != nullptr ? first->image : camera.eeprom;
    if (known.size() < eeprom.size())
        throw Failure(kUsage, "the recording of " + camera.product + ' ' + camera.serial +
                                  " does not say how the camera was set for its first frame");
    std::copy_n(known.begin(), eeprom.size(), eeprom.begin());
    // A camera does not begin to send when it is switched on, which it did while it was recorded.
    eeprom[sim::kEnable] = camera.eeprom.empty() ? 0 : camera.eeprom[sim::kEnable];
    return eeprom;
}

std::map<uint16_t, std::vector<uint8_t>> playedTables(const CameraFacts& camera)
{
    std::map<uint16_t, std::vector<uint8_t>> tables;
    tables[sim::kOrthogonalRegion] = camera.orthogonal;
    std::vector<uint8_t>& fppn = tables[sim::kFppn4x4Region]; // 16 bits, high byte first
    for (const int32_t value : camera.fppn) {
        fppn.push_back(static_cast<uint8_t>(value >> 8 & 0xFF));
        fppn.push_back(static_cast<uint8_t>(value & 0xFF));
    }
    return tables;
}

Player::Player(RecordedFrames frames, Options options)
    : m_frames(std::move(frames)), m_options(options), m_interval(kUsualInterval)
{
    m_hasNext = m_frames.next(m_next);
    if (!m_hasNext)
        throw Failure(kUsage, "the recording of " + camera().product + ' ' + camera().serial + " has no frame");
    m_firstParameters = m_next.parameters;
}

sim::Replay Player::replay(const sim::FrameRequest&, std::span<uint8_t, sim::kFrameBytes> frame)
{
    if (!m_hasNext)
        return sim::Replay::end;
    std::ranges::copy(m_next.raw, frame.begin());
    readAhead();
    return sim::Replay::frame;
}

// A frame whose time is no help comes after the usual one, which is that of the frames before.
void Player::readAhead()
{
    const uint64_t time = m_next.monotonicTime;
    m_hasNext = m_frames.next(m_next);
    if (!m_hasNext && m_options.loop) {
        m_hasNext = m_frames.next(m_next);
        return;
    }
    if (!m_hasNext || m_next.monotonicTime <= time)
        return;
    const uint64_t microseconds = (m_next.monotonicTime - time) / 1000;
    m_interval = static_cast<sim::TimeUs>(std::clamp<uint64_t>(microseconds, kLeastInterval, kMostInterval));
}

std::optional<sim::TimeUs> Player::interval() const
{
    return m_options.recordedPace ? std::optional(m_interval) : std::nullopt;
}

void Player::render(const sim::FrameRequest&, std::span<uint16_t, sim::kPixels> amplitude,
                    std::span<uint16_t, sim::kPixels> depth)
{
    std::ranges::fill(amplitude, uint16_t{0});
    std::ranges::fill(depth, uint16_t{0});
}
