// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What every USB device answers: descriptors, strings and the few standard requests that a host sends to it.
#include "camera.h"

#include <algorithm>

namespace sim
{

enum StandardRequest : uint8_t {
    kGetStatus = 0,
    kClearFeature = 1,
    kSetFeature = 3,
    kGetDescriptor = 6,
    kGetConfiguration = 8,
    kSetConfiguration = 9,
    kGetInterface = 10,
    kSetInterface = 11,
};

enum Descriptor : uint8_t { kDevice = 1, kConfiguration = 2, kString = 3, kInterface = 4, kEndpoint = 5 };

enum StringIndex : uint8_t { kLanguages, kManufacturer, kProduct, kSerial };

static constexpr uint8_t low(uint16_t value)
{
    return static_cast<uint8_t>(value & 0xFF);
}

static constexpr uint8_t high(uint16_t value)
{
    return static_cast<uint8_t>(value >> 8);
}

// A line for each part.
// clang-format off

std::vector<uint8_t> Camera::deviceDescriptor() const
{
    constexpr uint8_t kUsbRelease = 2, kControlPacket = 64, kConfigurations = 1;
    const auto vendor = m_config.vendorId, product = m_config.productId;
    return {18, kDevice, 0, kUsbRelease, 0, 0, 0, kControlPacket, // the interface tells the class
            low(vendor), high(vendor), low(product), high(product),
            0, 1, kManufacturer, kProduct, kSerial, kConfigurations}; // release 1.00
}

std::vector<uint8_t> Camera::configDescriptor() const
{
    constexpr uint8_t kBusPowered = 0x80, k500mA = 250, kVendorClass = 0xFF, kBulk = 2;
    constexpr uint16_t kPacket = kPacketBytes, kTotal = 9 + 9 + 7 + 7;
    return {9, kConfiguration, low(kTotal), high(kTotal), 1, 1, 0, kBusPowered, k500mA,
            9, kInterface, 0, 0, 2, kVendorClass, 0, 0, 0,
            7, kEndpoint, kBulkOut, kBulk, low(kPacket), high(kPacket), 0,
            7, kEndpoint, kBulkIn, kBulk, low(kPacket), high(kPacket), 0};
}

// clang-format on

std::string hexDigits(std::span<const uint8_t> bytes)
{
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

// Empty for an index that the camera does not have. The length byte leaves room for 126 characters.
std::vector<uint8_t> Camera::stringDescriptor(uint8_t index) const
{
    constexpr size_t kMostCharacters = 126;
    if (index == kLanguages)
        return {4, kString, 0x09, 0x04}; // English (US)
    if (index > kSerial)
        return {};
    std::string text = index == kManufacturer ? m_config.manufacturer
                       : index == kProduct    ? m_config.product
                                              : hexDigits(m_config.serial);
    text.resize(std::min(text.size(), kMostCharacters));
    std::vector<uint8_t> bytes = {static_cast<uint8_t>(2 + 2 * text.size()), kString};
    for (const char character : text) {
        bytes.push_back(static_cast<uint8_t>(character));
        bytes.push_back(0);
    }
    return bytes;
}

static Outcome send(const std::vector<uint8_t>& bytes, std::span<uint8_t> data)
{
    const size_t count = std::min(bytes.size(), data.size());
    std::copy_n(bytes.begin(), count, data.begin());
    return {Status::ok, count};
}

bool* Camera::haltOf(uint16_t endpoint)
{
    return endpoint == kBulkOut ? &m_outHalted : endpoint == kBulkIn ? &m_inHalted : nullptr;
}

Outcome Camera::answerStandard(const Setup& setup, std::span<uint8_t> data)
{
    constexpr uint8_t kIn = 0x80, kToInterface = 0x01, kToEndpoint = 0x02;
    constexpr uint16_t kEndpointHalt = 0, kControlEndpoint = 0;
    const uint8_t type = high(setup.value), index = low(setup.value);
    bool* const halt = haltOf(setup.index);
    const Outcome refused = {Status::stall};

    switch (setup.requestType << 8 | setup.request) {
    case kIn << 8 | kGetDescriptor:
        if (type == kDevice && index == 0)
            return send(deviceDescriptor(), data);
        if (type == kConfiguration && index == 0)
            return send(configDescriptor(), data);
        if (type == kString && index <= kSerial)
            return send(stringDescriptor(index), data);
        return refused;
    case kIn << 8 | kGetStatus:
        return send({0, 0}, data);
    case (kIn | kToInterface) << 8 | kGetStatus:
        return setup.index == 0 ? send({0, 0}, data) : refused;
    case (kIn | kToEndpoint) << 8 | kGetStatus:
        return halt || setup.index == kControlEndpoint ? send({halt && *halt, 0}, data) : refused;
    case kToEndpoint << 8 | kClearFeature:
    case kToEndpoint << 8 | kSetFeature:
        if (!halt || setup.value != kEndpointHalt)
            return refused;
        *halt = setup.request == kSetFeature;
        return {};
    case kIn << 8 | kGetConfiguration:
        return send({m_configuration}, data);
    case kSetConfiguration:
        if (setup.value > 1)
            return refused;
        m_configuration = index;
        m_outHalted = m_inHalted = false;
        return {};
    case (kIn | kToInterface) << 8 | kGetInterface:
        return setup.index == 0 ? send({0}, data) : refused;
    case kToInterface << 8 | kSetInterface:
        if (setup.value != 0 || setup.index != 0)
            return refused;
        m_outHalted = m_inHalted = false;
        return {};
    default:
        return refused;
    }
}

} // namespace sim
