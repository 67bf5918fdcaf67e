// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The root hub that every USB bus lists beside its cameras: its descriptors, and the few requests that listing tools
// send.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "wire.h"

namespace sim
{

std::vector<uint8_t> hubDeviceDescriptor();
std::vector<uint8_t> hubConfigDescriptor();
Outcome hubControl(const Setup& setup, std::span<uint8_t> data);

} // namespace sim
