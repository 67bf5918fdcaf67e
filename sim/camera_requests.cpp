// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The camera's own requests on endpoint 0: commands, EEPROM and calibration tables.
#include "camera.h"

#include <algorithm>

namespace sim
{

// A chunk's size tells the layout where one region serves two.
struct TableLayout {
    uint16_t region, chunk;
    size_t bytes;
};

static constexpr TableLayout kTables[] = {
    {kWigglingRegion, 256, 3840},       // 15 chunks
    {kWigglingRegion, 128, 8192},       // 64 chunks
    {kSecondWigglingRegion, 128, 8192}, // 64 chunks
    {kPlainFppnRegion, 256, 12288},     // 48 chunks
    {kFppn4x4Region, 128, 9600},        // 75 chunks
    {kFppn5x5Region, 128, 6144},        // 48 chunks
    {kOrthogonalRegion, 128, 4096},     // 32 chunks
};

static bool isRegion(uint16_t value)
{
    return std::any_of(std::begin(kTables), std::end(kTables), [=](const auto& row) { return row.region == value; });
}

static bool isCommand(uint8_t request)
{
    return request >= kTakeImage && request <= kFlushReadBuffer;
}

// `data` holds at most setup.length bytes, and fewer when the transfer was cut short.
Outcome Camera::answer(const Setup& setup, std::span<uint8_t> data, TimeUs now)
{
    const bool out = setup.requestType == kVendorOut, in = setup.requestType == kVendorIn;
    if (out && setup.request == kWriteTable && setup.index == 0)
        return writeTable(setup, data);

    m_run = {};
    if (setup.index != 0)
        return {Status::stall};
    if (in && setup.request == kReadTable)
        return readTable(setup, data);
    const bool eepromAddressed = setup.value == kEepromRegion && setup.length == kEepromBytes;
    if (out && setup.request == kWriteEeprom && eepromAddressed) {
        std::copy(data.begin(), data.end(), eeprom.begin());
        return {Status::ok, data.size()};
    }
    if (in && setup.request == kReadEeprom && eepromAddressed) {
        std::copy_n(eeprom.begin(), data.size(), data.begin());
        return {Status::ok, data.size()};
    }
    if (out && isCommand(setup.request) && setup.value == 0 && setup.length == kCommandBytes) {
        command(setup.request, now);
        return {Status::ok, data.size()};
    }
    return {Status::stall};
}

void Camera::command(uint8_t request, TimeUs now)
{
    if (request == kTakeImage)
        m_armed = true;
    if (request == kResetReadBuffer)
        resetFifo(now);
    if (request == kFlushReadBuffer) {
        resetFifo(now);
        m_fifo.assign(kResidueBytes, 0);
    }
}

// A chunk carries no offset: the camera counts the chunks that follow each other.
Outcome Camera::writeTable(const Setup& setup, std::span<const uint8_t> data)
{
    const auto row = std::find_if(std::begin(kTables), std::end(kTables), [&](const auto& layout) {
        return layout.region == setup.value && layout.chunk == setup.length;
    });
    const bool goesOn = m_run.chunk == setup.length && m_run.region == setup.value;
    if (!goesOn)
        m_run = {};
    if (row == std::end(kTables))
        return {Status::stall};

    auto& region = regions[setup.value];
    region.resize(row->bytes);
    const size_t count = std::min(data.size(), row->bytes - m_run.written);
    std::copy_n(data.begin(), count, region.begin() + static_cast<std::ptrdiff_t>(m_run.written));
    m_run = {setup.value, setup.length, m_run.written + count};
    if (m_run.written == row->bytes)
        m_run = {};
    return {Status::ok, data.size()};
}

Outcome Camera::readTable(const Setup& setup, std::span<uint8_t> data)
{
    if (!isRegion(setup.value))
        return {Status::stall};
    std::fill(data.begin(), data.end(), uint8_t{0});
    if (const auto found = regions.find(setup.value); found != regions.end())
        std::copy_n(found->second.begin(), std::min(found->second.size(), data.size()), data.begin());
    return {Status::ok, data.size()};
}

} // namespace sim
