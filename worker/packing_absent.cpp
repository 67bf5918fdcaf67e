// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Packing in a build without Zstandard: frames go as they are.
#include "worker/packing.h"

#include "host/failure.h"

struct Packing::Workspace {
};

Packing::Packing() = default;

Packing::~Packing() = default;

const char* Packing::missing()
{
    return "frames cannot be packed here, because this was built without Zstandard (libzstd-dev)";
}

std::span<const uint8_t> Packing::pack(std::initializer_list<std::span<const uint16_t>>)
{
    return {};
}

void Packing::unpack(std::span<const uint8_t>, std::initializer_list<std::span<uint16_t>>)
{
    throw Failure(kFailed, missing());
}
