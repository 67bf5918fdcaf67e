// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The records of a chunk in fewer bytes: Zstandard (RFC 8878), level 1.
#pragma once

#include <memory>
#include <span>

#include "host/bytes.h"

namespace mcap
{

// Keeps its workspace from chunk to chunk. For one thread at a time.
class ChunkPacking
{
public:
    // `repeats`: the messages are much alike, as corrected images are like the raw ones, which is worth some time.
    explicit ChunkPacking(bool repeats = false);
    ~ChunkPacking();
    ChunkPacking(const ChunkPacking&) = delete;
    ChunkPacking& operator=(const ChunkPacking&) = delete;

    // Why nothing can be compressed by this build, as a sentence; null when it can.
    static const char* missing();

    // Valid until the next call. The records themselves when they would not become smaller.
    std::span<const uint8_t> pack(std::span<const uint8_t> records);

    // Fails unless the bytes unpack to just `size` ones.
    void unpack(std::span<const uint8_t> packed, Bytes& into, size_t size);

private:
    struct Workspace;
    const std::unique_ptr<Workspace> m_workspace;
};

} // namespace mcap
