// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// See root_hub.h.
#include "root_hub.h"

#include <algorithm>
#include <string_view>

namespace sim
{

static std::vector<uint8_t> stringDescriptor(std::string_view text)
{
    std::vector<uint8_t> bytes = {static_cast<uint8_t>(2 + 2 * text.size()), 3};
    for (const char c : text) {
        bytes.push_back(static_cast<uint8_t>(c));
        bytes.push_back(0);
    }
    return bytes;
}

std::vector<uint8_t> hubDeviceDescriptor()
{
    return {18, 1, 0x00, 0x02, 9, 0, 1, 64, 0x6B, 0x1D, 0x02, 0x00, 0x01, 0x06, 3, 2, 1, 1};
}

std::vector<uint8_t> hubConfigDescriptor()
{
    return {9, 2, 25,   0, 1, 1, 0, 0xE0, 0, // configuration: self powered
            9, 4, 0,    0, 1, 9, 0, 0,    0, // interface: hub
            7, 5, 0x81, 3, 4, 0, 12};        // status change endpoint
}

Outcome hubControl(const Setup& setup, std::span<uint8_t> data)
{
    if (setup.requestType != 0x80)
        return {.status = Status::stall};
    std::vector<uint8_t> answer;
    const uint16_t descriptor = setup.request == 6 ? setup.value : 0;
    if (setup.request == 0) // GET_STATUS: self powered
        answer = {1, 0};
    else if (descriptor == 0x0100)
        answer = hubDeviceDescriptor();
    else if (descriptor == 0x0200)
        answer = hubConfigDescriptor();
    else if (descriptor == 0x0300)
        answer = {4, 3, 0x09, 0x04};
    else if (descriptor == 0x0301)
        answer = stringDescriptor("0000:00:14.0");
    else if (descriptor == 0x0302)
        answer = stringDescriptor("xHCI Host Controller");
    else if (descriptor == 0x0303)
        answer = stringDescriptor("Linux");
    else
        return {.status = Status::stall};
    const size_t bytes = std::min(answer.size(), data.size());
    std::copy_n(answer.begin(), bytes, data.begin());
    return {.bytes = bytes};
}

} // namespace sim
