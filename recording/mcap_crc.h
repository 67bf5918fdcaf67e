// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The CRC-32 of MCAP, which is that of zlib.
#pragma once

#include <cstdint>
#include <span>
#include <zlib.h>

namespace mcap
{

// Of bytes that follow others with the CRC `before`.
inline uint32_t crcOf(std::span<const uint8_t> bytes, uint32_t before = 0)
{
    return static_cast<uint32_t>(crc32_z(before, bytes.data(), bytes.size()));
}

// Of so many bytes that follow others, where the CRCs of both are known: much faster than reading the bytes again.
inline uint32_t crcOfBoth(uint32_t before, uint32_t crc, size_t bytes)
{
    return static_cast<uint32_t>(crc32_combine(before, crc, static_cast<z_off_t>(bytes)));
}

} // namespace mcap
