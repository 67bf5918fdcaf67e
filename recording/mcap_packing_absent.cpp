// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Takes the place of mcap_packing.cpp in a build without Zstandard.
#include "recording/mcap_packing.h"

#include "host/failure.h"

namespace mcap
{

struct ChunkPacking::Workspace {
};

ChunkPacking::ChunkPacking(bool) {}
ChunkPacking::~ChunkPacking() = default;

const char* ChunkPacking::missing()
{
    return "this build has no Zstandard, so it neither compresses nor reads what is compressed";
}

std::span<const uint8_t> ChunkPacking::pack(std::span<const uint8_t> records)
{
    return records;
}

void ChunkPacking::unpack(std::span<const uint8_t>, Bytes&, size_t)
{
    throw Failure(kFailed, missing());
}

} // namespace mcap
