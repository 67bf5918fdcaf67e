// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The planes of a frame in fewer bytes, exactly: the one packing of the wire and of whatever else keeps or sends
// frames.
//
// Neighbouring pixels of a depth camera are alike, so differences are small numbers, and their upper bytes are mostly
// zero. A packed frame is one frame of Zstandard (RFC 8878) that states its content's size. The content is, for each
// plane of n pixels in turn, n low bytes and then n high bytes:
//
//     d[i] = p[i] - p[i - 1]  modulo 65536; p[-1] is 0, and a row follows the one above without a break
//     z[i] = 2 * d[i]         for d[i] below 32768
//     z[i] = 131071 - 2 * d[i]  otherwise: the zigzag 0, -1, 1, -2, ... of d as a signed number
//     content: z[0] & 255, ..., z[n - 1] & 255, z[0] >> 8, ..., z[n - 1] >> 8
#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <span>

// Packs and unpacks, with workspace that is kept from frame to frame. For one thread at a time.
class Packing
{
public:
    Packing();
    ~Packing();
    Packing(const Packing&) = delete;
    Packing& operator=(const Packing&) = delete;

    // Why nothing can be packed here, as a sentence; null when it can.
    static const char* missing();

    // The packed planes, until the next call. Nothing when they would not be fewer bytes, as with noise, or when
    // packing is missing: such planes are sent as they are.
    std::span<const uint8_t> pack(std::initializer_list<std::span<const uint16_t>> planes);

    // Fills the planes. Fails unless the bytes are one packed frame of just that many pixels; the planes then hold
    // anything.
    void unpack(std::span<const uint8_t> packed, std::initializer_list<std::span<uint16_t>> planes);

private:
    struct Workspace;
    const std::unique_ptr<Workspace> m_workspace;
};
